// service-image.js - a host in Node: adds driver packages to an image file and saves it.
//
//   node service-image.js LIBRARY IMAGE DIRECTORY RESULTS INF...
//
// LIBRARY is the path of Kestro.dll. At most eight packages: they go in with one list.
'use strict';

const fs = require('fs');
const path = require('path');
const kestro = require('./kestro.js');

// Keys of an earlier run would stay in the file and read like this one's.
function newFile(folder, name) {
  const file = path.join(folder, name);
  fs.rmSync(file, { force: true });
  return file;
}

function sections(file) {
  const found = {};
  let section = {};
  for (const line of fs.existsSync(file) ? fs.readFileSync(file, 'latin1').split(/\r?\n/) : []) {
    const mark = line.indexOf('=');
    if (line.startsWith('[')) section = found[line.slice(1, -1)] ??= {};
    else if (mark > 0) section[line.slice(0, mark)] = line.slice(mark + 1);
  }
  return found;
}

function report(what, succeeded, file) {
  console.log(`${what}: ${succeeded ? 'OK' : 'failed'}`);
  if (succeeded) return true;
  for (const [name, keys] of Object.entries(sections(file))) {
    // In a W form's file a failed step is ERR=ERR; its ErrorCode keeps its name.
    if ('ERR' in keys) console.log(`  failed step ${name}`);
    if (name === 'Log') {
      for (const [key, text] of Object.entries(keys)) if (key !== 'Righe') console.log(`  ${text}`);
    }
  }
  return false;
}

function main(parameters) {
  const [libraryFile, image, directory, results, ...packages] = parameters.map((given) => path.resolve(given));
  if (packages.length < 1 || packages.length > kestro.driverListLength) {
    console.error('usage: node service-image.js LIBRARY IMAGE DIRECTORY RESULTS INF... (at most eight)');
    return 2;
  }
  const library = kestro.load(libraryFile);
  const log = path.join(results, 'dism.log');

  // The W forms take any path and return 1 for success.
  let file = newFile(results, 'mount.ini');
  if (!report('mount', library.MountWimImageW(image, directory, log, file) === 1, file)) return 1;

  // A list has eight entries; for fewer packages the last one stands again.
  const entries = Array.from({ length: kestro.driverListLength },
    (_, index) => packages[Math.min(index, packages.length - 1)]);
  file = newFile(results, 'drivers.ini');
  const listed = library.AddDriverListW(directory, entries, log, file) === 1;
  // The return value does not tell of a single package: its path among the errors does. The others are
  // saved all the same.
  const errors = Object.keys(sections(file).DISM_ADDDRIVER_ERRORS ?? {});
  const added = report('add drivers', listed && errors.length === 0, file);

  file = newFile(results, 'unmount.ini');
  const flags = listed ? kestro.saveChanges : kestro.dropChanges;
  const unmounted = report('unmount', library.UnmountWimImageW(directory, flags, log, file) === 1, file);
  return added && unmounted ? 0 : 1;
}

process.exitCode = main(process.argv.slice(2));
