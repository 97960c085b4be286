// kestro.js - the functions of Kestro.dll for Node, through koffi. kestro.h says what each of them does.
//
// A narrow ResultFile is a Buffer with the path in the ANSI code page and a zero at its end; a W form's
// is a string. Every call blocks Node's thread until it is done: a program with other work makes the
// calls in a worker.
'use strict';

const koffi = require('koffi');

// How many entries a driver list has: no more, no fewer, none of them null.
const driverListLength = 8;

// Flags of UnmountWimImage.
const saveChanges = 0;
const dropChanges = 1;

const wide = 'const char16_t *';
const narrow = 'const char *';
const list = 'const char16_t * const *';

// Each function's result and arguments, as kestro.h declares them.
const functions = {
  // Images. Narrow forms return 0 for success, W forms 1.
  MountWimImage: ['uint8_t', [wide, wide, wide, narrow]],
  MountWimImageW: ['uint8_t', [wide, wide, wide, wide]],
  UnmountWimImage: ['uint8_t', [wide, 'uint32_t', wide, narrow]],
  UnmountWimImageW: ['uint8_t', [wide, 'uint32_t', wide, wide]],
  // Drivers of an image.
  AddDriver: ['uint8_t', [wide, wide, wide, narrow]],
  AddDriverW: ['uint8_t', [wide, wide, wide, wide]],
  RemoveDriver: ['uint8_t', [wide, wide, wide, narrow]],
  RemoveDriverW: ['uint8_t', [wide, wide, wide, wide]],
  AddDriverList: ['uint8_t', [wide, list, wide, narrow]],
  AddDriverListW: ['uint8_t', [wide, list, wide, wide]],
  // The inventory. GetDriverInfoW returns 0 for plain success and for failure.
  GetDrivers: ['uint8_t', [wide, wide, narrow]],
  GetDriversW: ['uint8_t', [wide, wide, wide]],
  GetDriverInfo: ['uint8_t', [wide, wide, wide, narrow]],
  GetDriverInfoW: ['uint8_t', [wide, wide, wide, wide]],
  // Disks. Each call may consume one COM initialisation of the thread that makes it: make these calls
  // in a worker of their own. The three flags are bytes.
  CleanDisk: ['int32_t', [wide, 'uint8_t', 'uint8_t', 'uint8_t', narrow]],
  OnlineDisk: ['int32_t', [wide]],
  OfflineDisk: ['int32_t', [wide]],
  // This machine. The openers' handles are the caller's to close.
  InfInstall: ['int32_t', [wide]],
  OpenVdFile: ['void *', [wide]],
  OpenPhDrive: ['void *', [wide]],
  // The reporting itself.
  WriteTest: ['void', [narrow]],
  WriteTestW: ['void', [wide]],
};

// The library at the full `path`, so that nothing else of its name is found first.
function load(path) {
  const library = koffi.load(path);
  const loaded = {};
  for (const [name, [result, parameters]] of Object.entries(functions)) {
    loaded[name] = library.func('__stdcall', name, result, parameters);
  }
  return loaded;
}

module.exports = { driverListLength, dropChanges, functions, load, saveChanges };
