// The subcommands of cms.
#pragma once

#include "commands.h"

namespace zvradm {

void add_cms_pair(CLI::App& cms, globals& all);   // put, get, del, del-file
void add_cms_lists(CLI::App& cms, globals& all);  // by-file, by-target
void add_cms_import(CLI::App& cms, globals& all);

}  // namespace zvradm
