#include "engine_file.h"
