/*
 * kestro.h - the public interface of Kestro.dll: servicing of offline Windows images and disks.
 *
 * For C11 and C++ on 64-bit Windows. Include it and link with the import library, or load
 * Kestro.dll and look the functions up by the names below; they are exported undecorated.
 *
 * THE RESULTFILE
 *   The image and driver functions report every step into an INI file whose path the caller passes
 *   last. The library never opens that file itself: it writes through the system's private-profile
 *   writers, and an unwritable path costs the report but changes neither the work nor the return
 *   value. A path without a directory names a file in the Windows directory, so pass a full path.
 *   Keys of earlier calls stay until they are overwritten: use a new file for every call.
 *
 *     [<STEP>]  Result     OK, or ERR for the step that failed
 *               ErrorCode  of a failed step: the thread's last-error code as the library found it
 *                          after logging the failure; decimal, signed
 *     [Log]     Righe      the number of the latest line; a call's first line is number 2
 *               "2 - 05-03-2021 14:07:09" = text: one key per line, in local time
 *     [Status]  LastWrite  local time of the latest write, YYYYMMDDhhmmss
 *
 *   A failed step logs two lines: one names the failed system function, the next is its HRESULT in
 *   signed decimal.
 *
 * NARROW AND WIDE FORMS
 *   Functions come in pairs that differ in the type of the ResultFile's path and in two ways that
 *   every host has to know:
 *
 *                                     narrow form          W form
 *     return value on success         0                    1    (GetDriverInfoW: 0, as on failure)
 *     return value on failure         1                    0
 *     a step's outcome in the file    [STEP] Result=OK     [STEP] OK=OK
 *                                     [STEP] Result=ERR    [STEP] ERR=ERR
 *
 *   In the W form a key of at most seven characters arrives as its value does: Result becomes OK or
 *   ERR, Flags becomes 0 or 1. With a value of eight characters or more such a key arrives as
 *   neither of the two. ErrorCode is longer and arrives as given.
 *   Log lines of the W form do not refresh LastWrite in the ResultFile; its other writes do.
 *
 * THREADS, MEMORY, ERRORS
 *   Each call works on the caller's thread, returns when it is done, and keeps nothing. The servicing
 *   API's initialisation belongs to the whole process: do not let calls of the image and driver
 *   functions overlap. Strings stay the caller's. No exception leaves a function whose description
 *   does not name one.
 *
 *   A failing call of an image or driver function prints one line to standard output: "Return code is: "
 *   and the HRESULT in hex. The six disk and device functions do not.
 */
#ifndef KESTRO_H
#define KESTRO_H

#include <stdint.h>
#include <wchar.h>

#if !defined(_WIN64)
#error "Kestro.dll is a 64-bit Windows library"
#endif

/* The one 64-bit calling convention; spelled out for bindings that are made from this header. */
#define KESTRO_CALL __stdcall

#if defined(KESTRO_BUILDING)
#define KESTRO_API /* exported by the module-definition file */
#else
#define KESTRO_API __declspec(dllimport)
#endif

#if defined(__cplusplus)
#define KESTRO_NOEXCEPT noexcept
extern "C" {
#else
#define KESTRO_NOEXCEPT
#endif

/*
 * MountWimImage - mounts the first image of an image file into a directory, read-write.
 *
 *   ImageFilePath  the image file
 *   MountPath      an existing, empty directory
 *   LogFilePath    the servicing API's own log file
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *   Paths other than the narrow resultFile are UTF-16. Paths are not checked before they are passed
 *   on: what the system rejects is reported as the failed step's HRESULT.
 *
 * Writes  [DISM_INITIALIZE] Result=OK, [DISM_MOUNT] Result=OK and the log lines "Mounting image...",
 *         "Image mounted successfully.". A successful mount writes no DISM_SHUTDOWN section.
 *         On failure the failed step's ErrorCode and Result=ERR (DISM_INITIALIZE, DISM_MOUNT or
 *         DISM_SHUTDOWN). When only the closing shutdown failed, the image is unmounted again and its
 *         changes are dropped. A clean-up call that fails too adds ErrorCode and Result=ERR under
 *         DISM_UNMOUNT or DISM_SHUTDOWN; its log lines carry the HRESULT of the step that failed
 *         first.
 *
 * Returns                                                        narrow   W
 *         mounted, shutdown returned S_OK                        0        1
 *         mounted, shutdown returned another success code        1        1
 *         a step failed                                          1        0
 *
 * Leaves  the mounted image, until UnmountWimImage or any other tool of the system unmounts it.
 */
KESTRO_API uint8_t KESTRO_CALL MountWimImage(const wchar_t* ImageFilePath, const wchar_t* MountPath,
                                             const wchar_t* LogFilePath,
                                             const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL MountWimImageW(const wchar_t* ImageFilePath,
                                              const wchar_t* MountPath, const wchar_t* LogFilePath,
                                              const wchar_t* resultFile) KESTRO_NOEXCEPT;

/*
 * UnmountWimImage - unmounts the image that is mounted in a directory.
 *
 *   MountPath      the mount directory
 *   Flags          passed to the system unchanged: 0 saves the changes into the image file, 1 drops
 *                  them; with 0 the system also takes 0x10000 (write integrity data) and 0x20000
 *                  (append a new image)
 *   LogFilePath    the servicing API's own log file
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *
 * Writes  [DISM_INITIALIZE] Result=OK, [DISM_UNMOUNT] Flags=<Flags in signed decimal> before the
 *         unmount and Result=OK after it, [DISM_SHUTDOWN] Result=OK, and the log lines "Unmounting
 *         image...", "Image unmounted successfully.".
 *         On failure the failed step's ErrorCode and Result=ERR. A failing clean-up shutdown adds
 *         [VHDX_RESTORE] ErrorCode without a Result; its log lines carry its own HRESULT.
 *
 * Returns                                                        narrow   W
 *         unmounted, shutdown returned S_OK                      0        1
 *         unmounted, shutdown returned another success code      1        1
 *         a step failed                                          1        0
 */
KESTRO_API uint8_t KESTRO_CALL UnmountWimImage(const wchar_t* MountPath, uint32_t Flags,
                                               const wchar_t* LogFilePath,
                                               const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL UnmountWimImageW(const wchar_t* MountPath, uint32_t Flags,
                                                const wchar_t* LogFilePath,
                                                const wchar_t* resultFile) KESTRO_NOEXCEPT;

/*
 * AddDriver, RemoveDriver - add one driver package to an offline image, or remove one.
 *
 *   ImagePath      root directory of the offline image: a mount directory or an offline installation
 *   DriverPath     AddDriver: path of the package's INF file. Unsigned packages are not forced in.
 *                  RemoveDriver: the package's published name (oem0.inf)
 *   LogFilePath    the servicing API's own log file
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *
 * Writes  [DISM_INITIALIZE] Result=OK, [DISM_ADDDRIVER] or [DISM_REMOVEDRIVER] Result=OK,
 *         [DISM_SHUTDOWN] Result=OK, and no log lines. Opening, committing and closing the session
 *         leave no section when they succeed.
 *         On failure the failed step's ErrorCode and Result=ERR (DISM_INITIALIZE, DISM_OPENSESSION,
 *         DISM_ADDDRIVER or DISM_REMOVEDRIVER, DISM_COMMITIMAGE, DISM_SHUTDOWN). Then the session is
 *         closed (handle 0 if it was never opened, a second time if it was closed already) and the
 *         API shut down; a clean-up call that fails adds ErrorCode and Result=ERR under
 *         DISM_CLOSESESSION or DISM_SHUTDOWN, and its log lines carry the HRESULT of the step that
 *         failed first. A failed operation is never committed.
 *
 * Returns                                                        narrow   W
 *         every step succeeded, shutdown returned S_OK           0        1
 *         every step succeeded, shutdown: another success code   1        1
 *         a step failed                                          1        0
 */
KESTRO_API uint8_t KESTRO_CALL AddDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                         const wchar_t* LogFilePath,
                                         const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL AddDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                          const wchar_t* LogFilePath,
                                          const wchar_t* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL RemoveDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                            const wchar_t* LogFilePath,
                                            const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL RemoveDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                             const wchar_t* LogFilePath,
                                             const wchar_t* resultFile) KESTRO_NOEXCEPT;

/*
 * AddDriverList - adds eight driver packages to an offline image in one session, with one commit.
 *
 *   ImagePath      as for AddDriver
 *   DriverPaths    exactly eight paths of INF files; there is no count and no terminator. For fewer
 *                  packages repeat one of the paths. A NULL entry is not skipped: in the narrow form
 *                  it erases the sections DISM_ADDDRIVER and, when the system rejects it,
 *                  DISM_ADDDRIVER_ERRORS; the W form must not be given one.
 *   LogFilePath    the servicing API's own log file
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *
 * Writes  for each entry [DISM_ADDDRIVER] <path in the ANSI code page>=OK, whatever became of it; for
 *         a package that failed also [DISM_ADDDRIVER_ERRORS] <path>=<last-error code> and the two log
 *         lines. The path among the errors is the only sign of a failed package. Otherwise as
 *         AddDriver, without a Result in DISM_ADDDRIVER. In the W form a path of at most seven
 *         characters arrives as OK.
 *
 * Returns as AddDriver. A package that fails changes neither the return value nor the commit of the
 *         others.
 *
 * Throws  _com_error (E_OUTOFMEMORY) when memory runs out while an entry is copied for its key. The
 *         exception is the C++ runtime's of the compiler that built Kestro.dll; the session and the
 *         API stay open and nothing is committed.
 */
KESTRO_API uint8_t KESTRO_CALL AddDriverList(const wchar_t* ImagePath,
                                             const wchar_t* const* DriverPaths,
                                             const wchar_t* LogFilePath, const char* resultFile);
KESTRO_API uint8_t KESTRO_CALL AddDriverListW(const wchar_t* ImagePath,
                                              const wchar_t* const* DriverPaths,
                                              const wchar_t* LogFilePath,
                                              const wchar_t* resultFile);

/*
 * GetDrivers - lists the third-party (out-of-box) driver packages of a mounted image.
 *
 *   ImagePath      the directory where the image is mounted
 *   LogFilePath    the servicing API's own log file: the second argument here
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *
 * Prints  "These are the third party drivers from the image:" and for each package, numbered from 0,
 *         "Driver Package <n>: <published name>" and "Original file name: <name>".
 *
 * Writes  the log line "These are the third party drivers from the image." (before it, for an image
 *         without any, "No third party drivers found inside the image.") and for each package
 *         "Driver Package <n> - PublishedName: <name> - Original file name: <name>", names in the
 *         ANSI code page; [DISM_INITIALIZE], [DISM_GETDRIVERS], [DISM_SHUTDOWN] Result=OK.
 *         On failure as AddDriver, with DISM_GETDRIVERS for the query. The image is never changed.
 *
 * Returns as AddDriver.
 *
 * Leaves  one array of package records per successful call, which the system never gets back.
 *
 * Throws  _com_error when memory runs out (E_OUTOFMEMORY) or the system fails while a name is
 *         converted; see AddDriverList.
 */
KESTRO_API uint8_t KESTRO_CALL GetDrivers(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                                          const char* resultFile);
KESTRO_API uint8_t KESTRO_CALL GetDriversW(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                                           const wchar_t* resultFile);

/*
 * GetDriverInfo - asks for one driver package of a mounted image and tells only whether that worked:
 * the package's records are neither shown nor written.
 *
 *   ImagePath      the directory where the image is mounted
 *   Driver         a published name (oem0.inf) or the path of an INF file
 *   LogFilePath    the servicing API's own log file: the third argument here
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 *
 * Writes  [DISM_INITIALIZE] Result=OK. A failed query is told on standard output alone
 *         ("DismGetDriverInfo Failed: " and its HRESULT in hex); failures of the other steps as
 *         AddDriver.
 *
 * Returns                                                        narrow   W
 *         the query succeeded: the low byte of its HRESULT       0        0   (S_FALSE: 1)
 *         a step failed                                          1        0
 *         The W form returns 0 for plain success and for failure: only the ResultFile and the console
 *         tell them apart.
 *
 * Leaves  after success the session open and the API initialised, and the query's records allocated;
 *         the next call's closing shutdown finds an open session.
 */
KESTRO_API uint8_t KESTRO_CALL GetDriverInfo(const wchar_t* ImagePath, const wchar_t* Driver,
                                             const wchar_t* LogFilePath,
                                             const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API uint8_t KESTRO_CALL GetDriverInfoW(const wchar_t* ImagePath, const wchar_t* Driver,
                                              const wchar_t* LogFilePath,
                                              const wchar_t* resultFile) KESTRO_NOEXCEPT;

/*
 * CleanDisk - wipes the disk of a given name through the Virtual Disk Service.
 *
 *   diskName       the disk's name as the service reports it (\\?\PhysicalDrive1), UTF-16; compared
 *                  without case and up to 40 characters
 *   force          non-zero: also a disk with data volumes
 *   forceOEM       non-zero: also a disk with an OEM partition
 *   fullClean      non-zero: overwrite every sector, not just the partitioning structures
 *                  (the three reach the service as they are)
 *   resultFile     the ResultFile, in the ANSI code page; there is no W form
 *
 * COM must be initialised on the calling thread. A call that gets as far as its common exit
 * uninitialises it once, which consumes one of the thread's own initialisations: hosts initialise COM
 * for each call. The calls that do not, skip the closing log lines too.
 *
 * Writes  log lines only: each label and each HRESULT (signed decimal) is a line of its own. A call that
 *         ran to its common exit ends with "All resources were released safely (Inside Main).",
 *         "Last HRESULT: " and that code.
 * Prints  "Pack #: <n>" and "Disk #: <n>" while it searches packs; packs count from 1 for each provider,
 *         disks from 1 for each pack.
 *
 * Returns                                                                        COM uninitialised
 *         1         the disk was cleaned                                         yes
 *         0         not found; the service could not be loaded; a failure among
 *                   the unallocated disks; the clean of such a disk failed; the
 *                   service refused to start the clean of a disk in a pack       yes
 *         0         the service's loader could not be created                    no
 *         negative  the HRESULT of a failure inside a provider, or of the clean
 *                   of a disk in a pack                                          no
 *         There is no time-out: the call returns when the service has finished.
 *
 * Leaves  objects of the service unreleased: packs, the disks that did not match, earlier enumerators,
 *         and the objects of the clean itself. The common exit releases the service and the latest
 *         enumerators; the other paths release neither. Also the strings of the properties that it asked
 *         each provider, pack and disk for.
 */
KESTRO_API int32_t KESTRO_CALL CleanDisk(const wchar_t* diskName, uint8_t force, uint8_t forceOEM,
                                         uint8_t fullClean, const char* resultFile) KESTRO_NOEXCEPT;

/*
 * OnlineDisk, OfflineDisk - bring the disk of a given name online, or take it offline.
 *
 *   diskName       as for CleanDisk, which also says what these calls need of COM
 *
 * Returns                                                                        COM uninitialised
 *         0 or another success code  the service's own                           yes
 *         1                          no such disk                                yes
 *         negative                   the HRESULT of what failed                  no
 *         They write and print nothing.
 *
 * Leaves  objects of the service unreleased and strings, as CleanDisk.
 */
KESTRO_API int32_t KESTRO_CALL OnlineDisk(const wchar_t* diskName) KESTRO_NOEXCEPT;
KESTRO_API int32_t KESTRO_CALL OfflineDisk(const wchar_t* diskName) KESTRO_NOEXCEPT;

/*
 * InfInstall - installs a driver package on the running system, unforced and without asking whether a
 * restart is needed: the system may put up its own restart dialog, and the call then waits for the answer.
 *
 *   infPath        full path of the package's INF file
 *
 * Returns 1, or 0 on failure with the reason in GetLastError(). Writes and prints nothing.
 */
KESTRO_API int32_t KESTRO_CALL InfInstall(const wchar_t* infPath) KESTRO_NOEXCEPT;

/*
 * OpenVdFile - opens an existing file for reading; others may read it meanwhile, not write it.
 * OpenPhDrive - opens an existing device or file for writing: unshared, unbuffered, write-through. The
 * system's rules for unbuffered writes apply (whole sectors, aligned buffers and offsets).
 *
 *   path           the file or device (\\.\PhysicalDrive1)
 *
 * Returns the handle, or NULL with the reason in GetLastError(). Neither creates anything, writes a
 *         ResultFile or prints.
 *
 * Leaves  the handle, which is the caller's to close with CloseHandle.
 */
KESTRO_API void* KESTRO_CALL OpenVdFile(const wchar_t* path) KESTRO_NOEXCEPT;
KESTRO_API void* KESTRO_CALL OpenPhDrive(const wchar_t* path) KESTRO_NOEXCEPT;

/*
 * WriteTest - writes fixed keys, by which a host checks that it finds and reads what the library
 * writes: [KESTRO_TEST] TEST=TEST, [STATUS] Status=C and one log line. Names compare without case, so
 * Status=C stands in the same section as LastWrite. In the W form these keys arrive as given.
 *
 *   resultFile     the ResultFile; ANSI code page in the narrow form
 */
KESTRO_API void KESTRO_CALL WriteTest(const char* resultFile) KESTRO_NOEXCEPT;
KESTRO_API void KESTRO_CALL WriteTestW(const wchar_t* resultFile) KESTRO_NOEXCEPT;

#if defined(__cplusplus)
}
#endif

#endif
