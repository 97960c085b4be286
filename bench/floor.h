/* floor.h - the least a library could do: the platform calls of one export, replayed from a list with
 * texts that were made beforehand. */
#ifndef KESTRO_BENCH_FLOOR_H
#define KESTRO_BENCH_FLOOR_H

#include <stddef.h>
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
    int(__cdecl* printW)(const wchar_t*, va_list);
    /* Every function of the servicing API: it succeeds and does nothing. */
    HRESULT(WINAPI* service)(void);
};

enum CallKind {
    CALL_WRITE_A,
    CALL_WRITE_W,
    CALL_TO_WIDE,
    CALL_TO_NARROW,
    CALL_COPY_STRING,
    CALL_LAST_ERROR,
    CALL_TIME,
    CALL_LOCAL_TIME,
    CALL_PRINT_W,
    CALL_SERVICE
};

struct Call {
    enum CallKind kind;
    const void* text[4]; /* section, key, value and path of a write; else the first text */
    int length;          /* of a conversion's input */
    int capacity;        /* of its output: 0 only asks for the length */
};

void ReplayCalls(const struct Platform* platform, const struct Call* calls, size_t count);

#ifdef __cplusplus
}
#endif

#endif
