// native_filesystem.h - read before everything else in the edge: std::filesystem as the engine has it.
// Wine's compiler calls its target Windows, where a path would hold wide text; the two halves must
// agree on what a path is.
#pragma once

#pragma push_macro("_WIN32")
#undef _WIN32
#include <filesystem>
#pragma pop_macro("_WIN32")

static_assert(std::is_same_v<std::filesystem::path::value_type, char>);
