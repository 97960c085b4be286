/* floor.c - replays a list of platform calls. */
#include "floor.h"

#include <stdarg.h>
#include <stdint.h>

static void PrintA(const struct Platform* platform, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    platform->printA(format, arguments);
    va_end(arguments);
}

static void PrintW(const struct Platform* platform, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    platform->printW(format, arguments);
    va_end(arguments);
}

static DWORD Number(const void* argument)
{
    return (DWORD)(uintptr_t)argument;
}

static void HandleText(const struct Platform* platform, const struct Call* call)
{
    static char narrow[4096];
    static wchar_t wide[4096];
    static BSTR kept[KEPT_STRINGS];
    const void* const text = call->argument[0];

    switch (call->kind) {
    case CALL_TO_WIDE:
        platform->toWide(CP_ACP, 0, (const char*)text, call->length, call->capacity ? wide : NULL,
                         call->capacity);
        break;
    case CALL_TO_NARROW:
        platform->toNarrow(CP_ACP, 0, (const wchar_t*)text, call->length,
                           call->capacity ? narrow : NULL, call->capacity, NULL, NULL);
        break;
    case CALL_COPY_STRING:
        kept[call->length] = platform->copyString((const wchar_t*)text);
        break;
    case CALL_FREE_STRING:
        platform->freeString(kept[call->length]);
        break;
    case CALL_PRINT_A:
        PrintA(platform, "%s", (const char*)text);
        break;
    default:
        PrintW(platform, L"%s", (const wchar_t*)text);
        break;
    }
}

void ReplayCalls(const struct Platform* platform, const struct Call* calls, size_t count)
{
    __time64_t now = 0;

    for (const struct Call* call = calls; call != calls + count; ++call) {
        const void* const* const a = call->argument;
        switch (call->kind) {
        case CALL_WRITE_A:
            platform->writeA((const char*)a[0], (const char*)a[1], (const char*)a[2],
                             (const char*)a[3]);
            break;
        case CALL_WRITE_W:
            platform->writeW((const wchar_t*)a[0], (const wchar_t*)a[1], (const wchar_t*)a[2],
                             (const wchar_t*)a[3]);
            break;
        case CALL_LAST_ERROR:
            platform->lastError();
            break;
        case CALL_TIME:
            now = platform->time(NULL);
            break;
        case CALL_LOCAL_TIME:
            platform->localTime(&now);
            break;
        case CALL_FLUSH:
            platform->flush(stdout);
            break;
        case CALL_OPEN:
            platform->openFile((const wchar_t*)a[0], Number(a[1]), Number(a[2]), NULL, Number(a[3]),
                               Number(a[4]), NULL);
            break;
        case CALL_STUB:
            call->stub(a[0], a[1], a[2], a[3], a[4]);
            break;
        default:
            HandleText(platform, call);
            break;
        }
    }
}
