// killed_process.h - work that is killed at a chosen system call.
#pragma once

#include <functional>

namespace kestro::test {

// Runs the work in a process of its own and kills it right before the n-th change it makes to the disk.
// False when the work was done before that.
bool RunAndKill(const std::function<void()>& work, int change);

} // namespace kestro::test
