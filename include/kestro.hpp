// kestro.hpp - a C++20 companion of kestro.h for hosts that want types. Header-only; Windows only; it loads
// Kestro.dll at run time. Link with ole32, for the disk operations.
//
//   kestro::Library library(L"C:\\tools\\Kestro.dll");
//   kestro::Operations kestro(library);
//   const kestro::Outcome mounted =
//       kestro.Mount(L"D:\\install.wim", L"D:\\mount", {L"D:\\dism.log", L"D:\\result.ini"});
//   if (!mounted.succeeded && mounted.failure)
//       std::printf("%s failed: 0x%08X\n", mounted.failure->function.c_str(),
//                   static_cast<unsigned>(mounted.failure->hresult));
//
// Paths are full ones. An Outcome is the same whichever form of a function is called; texts are UTF-8.
#ifndef KESTRO_HPP
#define KESTRO_HPP

#include "kestro/disk_list.hpp"
#include "kestro/disk_service.hpp"
#include "kestro/library.hpp"
#include "kestro/operations.hpp"
#include "kestro/report.hpp"
#include "kestro/servicing.hpp"

#endif
