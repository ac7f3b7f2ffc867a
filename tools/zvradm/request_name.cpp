#include "request_name.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <vector>

namespace zvradm {

namespace {

std::vector<std::string> split_request(std::string_view text) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\') {
      if (++i == text.size() || (text[i] != '.' && text[i] != '\\'))
        throw request_fault("a backslash stands before a dot or a backslash only");
      parts.back() += text[i];
    } else if (text[i] == '.') {
      parts.emplace_back();
    } else {
      parts.back() += text[i];
    }
  }
  return parts;
}

std::string escaped(std::string_view part) {
  std::string text;
  for (const char c : part) {
    if (c == '.' || c == '\\') text += '\\';
    text += c;
  }
  return text;
}

template <std::size_t width>
std::string_view part_of(const char (&field)[width]) {
  return {field, strnlen(field, width)};
}

template <std::size_t width>
void put_part(char (&field)[width], std::string_view part, const char* what, std::size_t most) {
  if (part.size() > most)
    throw request_fault(std::string(what) + " is " + std::to_string(part.size()) + " bytes long, at most " +
                        std::to_string(most));
  std::memcpy(field, part.data(), part.size());
}

template <class Number>
Number number_of(std::string_view digits, const char* what) {
  Number value = 0;
  const auto [end, code] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (code != std::errc() || end != digits.data() + digits.size())
    throw request_fault(std::string(what) + " must be a number from 0 to " +
                        std::to_string(static_cast<Number>(~Number{0})));
  return value;
}

// Three numbers with a sign between them.
std::array<std::string_view, 3> three_parts(std::string_view text, char sign, const char* what) {
  const std::size_t first = text.find(sign);
  const std::size_t second = first == std::string_view::npos ? first : text.find(sign, first + 1);
  if (second == std::string_view::npos)
    throw request_fault(std::string(what) + " has three numbers with '" + sign + "' between them");
  return {text.substr(0, first), text.substr(first + 1, second - first - 1), text.substr(second + 1)};
}

// Takes what stands behind the last dot away.
std::string_view take_last(std::string_view* text) {
  const std::size_t dot = text->rfind('.');
  if (dot == std::string_view::npos)
    throw request_fault("a correlator is ORIGIN.YEAR/MONTH/DAY.HOUR:MINUTE:SECOND.SEQUENCE");
  const std::string_view last = text->substr(dot + 1);
  *text = text->substr(0, dot);
  return last;
}

}  // namespace

db_rqf_id parse_request(std::string_view text, request_form form) {
  const std::vector<std::string> parts = split_request(text);
  const bool with_function = form == request_form::function;
  // A root may be written with the dot that stands before its empty function.
  const bool fits =
      with_function ? parts.size() == 5 : parts.size() == 4 || (parts.size() == 5 && parts[4].empty());
  if (!fits)
    throw request_fault(with_function ? "a function of a request is SERVER.USER.SEQUENCE.RECURSION.FUNCTION"
                                      : "a request is SERVER.USER.SEQUENCE.RECURSION");
  db_rqf_id id{};
  put_part(id.request.src_domain, parts[0], "the server", sizeof id.request.src_domain - 1);
  put_part(id.request.user, parts[1], "the user", sizeof id.request.user);
  id.request.seq_no = number_of<std::uint32_t>(parts[2], "the sequence");
  id.request.recursion_no = number_of<std::uint16_t>(parts[3], "the recursion");
  if (with_function) put_part(id.subreq_id, parts[4], "the function", sizeof id.subreq_id);
  return id;
}

std::string request_text(const db_rqf_id& id, request_form form) {
  std::string text = escaped(part_of(id.request.src_domain)) + "." + escaped(part_of(id.request.user)) + "." +
                     std::to_string(id.request.seq_no) + "." + std::to_string(id.request.recursion_no);
  if (form == request_form::function) text += "." + escaped(part_of(id.subreq_id));
  return text;
}

db_coo parse_correlator(std::string_view text) {
  db_coo record{};
  record.sequence = number_of<std::uint32_t>(take_last(&text), "the sequence");
  const auto time = three_parts(take_last(&text), ':', "the time");
  const auto date = three_parts(take_last(&text), '/', "the date");
  record.year = number_of<std::uint16_t>(date[0], "the year");
  record.month = number_of<std::uint8_t>(date[1], "the month");
  record.day = number_of<std::uint8_t>(date[2], "the day");
  record.hour = number_of<std::uint8_t>(time[0], "the hour");
  record.minute = number_of<std::uint8_t>(time[1], "the minute");
  record.second = number_of<std::uint8_t>(time[2], "the second");
  put_part(record.origin, text, "the origin", sizeof record.origin);
  return record;
}

std::string correlator_text(const db_coo& record) {
  const auto three = [](unsigned a, unsigned b, unsigned c, const char* sign) {
    return std::to_string(a) + sign + std::to_string(b) + sign + std::to_string(c);
  };
  return std::string(part_of(record.origin)) + "." + three(record.year, record.month, record.day, "/") + "." +
         three(record.hour, record.minute, record.second, ":") + "." + std::to_string(record.sequence);
}

}  // namespace zvradm
