/* floor.h - the least a library could do: the platform calls of one export, replayed from a list with
 * texts that were made beforehand. */
#ifndef KESTRO_BENCH_FLOOR_H
#define KESTRO_BENCH_FLOOR_H

#include <stddef.h>
#include <stdio.h>
#include <time.h>
#include <wchar.h>

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The platform as both sides call it. */
struct Platform {
    BOOL(WINAPI* writeA)(LPCSTR, LPCSTR, LPCSTR, LPCSTR);
    BOOL(WINAPI* writeW)(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR);
    int(WINAPI* toWide)(UINT, DWORD, LPCSTR, int, LPWSTR, int);
    int(WINAPI* toNarrow)(UINT, DWORD, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL);
    BSTR(WINAPI* copyString)(const OLECHAR*);
    void(WINAPI* freeString)(BSTR);
    DWORD(WINAPI* lastError)(void);
    __time64_t(__cdecl* time)(__time64_t*);
    struct tm*(__cdecl* localTime)(const __time64_t*);
    int(__cdecl* printA)(const char*, va_list);
    int(__cdecl* printW)(const wchar_t*, va_list);
    int(__cdecl* flush)(FILE*);
    HANDLE(WINAPI* openFile)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
};

enum CallKind {
    CALL_WRITE_A,
    CALL_WRITE_W,
    CALL_TO_WIDE,
    CALL_TO_NARROW,
    CALL_COPY_STRING,
    CALL_FREE_STRING,
    CALL_LAST_ERROR,
    CALL_TIME,
    CALL_LOCAL_TIME,
    CALL_PRINT_A,
    CALL_PRINT_W,
    CALL_FLUSH,
    CALL_OPEN,
    /* A function of the servicing API or of the device installer, of COM or of one of its objects: the
     * stub itself. The way through an object's method table is the library's own cost. */
    CALL_STUB
};

typedef HRESULT(WINAPI* Stub)(const void*, const void*, const void*, const void*, const void*);

struct Call {
    enum CallKind kind;
    /* Section, key, value and path of a write; path, access, sharing, disposition and flags of an open;
     * what a stub looks at; else the first is the text. */
    const void* argument[5];
    int length;   /* of a conversion's input; of a copied string the place where it is kept */
    int capacity; /* of a conversion's output: 0 only asks for the length */
    Stub stub;
};

enum { KEPT_STRINGS = 8 };

void ReplayCalls(const struct Platform* platform, const struct Call* calls, size_t count);

#ifdef __cplusplus
}
#endif

#endif
