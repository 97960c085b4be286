// image_mount.h - mounting an image file into a directory and unmounting it.
#pragma once

#include "report/step_reporter.h"

#include <cstdint>

namespace kestro::library {

// Mounts the file's first image, read-write.
Outcome MountWimImage(StepReporter& report, const wchar_t* ImageFilePath, const wchar_t* MountPath,
                      const wchar_t* LogFilePath);

// Flags go to the platform unchanged: 0 saves the changes, 1 drops them.
Outcome UnmountWimImage(StepReporter& report, const wchar_t* MountPath, std::uint32_t Flags,
                        const wchar_t* LogFilePath);

} // namespace kestro::library
