// Return codes of the library under the names of the public header.
#pragma once

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>
