#include "file_header_json.h"

namespace zvradm {

json file_header_json(const zvrdb::engine::file_header& h) {
  json object;
  object["generation"] = h.generation;
  object["byte_order"] = h.little_endian ? "little" : "big";
  object["root"] = h.root;
  object["depth"] = h.depth;
  object["nextnode"] = h.nextnode;
  object["nextrec"] = h.nextrec;
  object["extent"] = h.extent;
  object["freenode"] = h.freenode;
  object["freerecs"] = h.freerecs;
  object["reccount"] = h.reccount;
  object["infolen"] = h.infolen;
  object["transhead"] = h.transhead;
  object["savedhead"] = h.savedhead;
  object["key_types"] = h.key_types;
  object["write_flag"] = h.write_flag;
  object["size"] = h.size;
  return object;
}

}  // namespace zvradm
