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
  json trees = json::array();
  for (std::size_t i = 0; i < h.tree_depths.size(); ++i) {
    if (h.tree_depths[i] == 0) continue;
    json keys = json::array();
    for (std::size_t k = 0; k < h.key_trees.size(); ++k)
      if (h.key_trees[k] == i + 1) keys.push_back(k + 1);
    trees.push_back({{"tree", i + 1}, {"depth", h.tree_depths[i]}, {"root", h.tree_roots[i]}, {"keys", std::move(keys)}});
  }
  if (!trees.empty()) object["trees"] = std::move(trees);   // beside the one that all files have
  object["write_flag"] = h.write_flag;
  object["size"] = h.size;
  if (h.journal_note) object["note"] = h.journal_note;
  return object;
}

}  // namespace zvradm
