// servicing_api.h - the servicing API's declarations, from mingw-w64's header.
#pragma once

#include <windows.h>

using WINBOOL = BOOL; // mingw-w64's name for it

#include <dismapi.h>
