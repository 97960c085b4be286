/* floor.c - replays a list of platform calls. */
#include "floor.h"

#include <stdarg.h>

static void Print(const struct Platform* platform, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    platform->printW(format, arguments);
    va_end(arguments);
}

void ReplayCalls(const struct Platform* platform, const struct Call* calls, size_t count)
{
    static char narrow[4096];
    static wchar_t wide[4096];
    __time64_t now = 0;

    for (const struct Call* call = calls; call != calls + count; ++call) {
        switch (call->kind) {
        case CALL_WRITE_A:
            platform->writeA((const char*)call->text[0], (const char*)call->text[1],
                             (const char*)call->text[2], (const char*)call->text[3]);
            break;
        case CALL_WRITE_W:
            platform->writeW((const wchar_t*)call->text[0], (const wchar_t*)call->text[1],
                             (const wchar_t*)call->text[2], (const wchar_t*)call->text[3]);
            break;
        case CALL_TO_WIDE:
            platform->toWide(CP_ACP, 0, (const char*)call->text[0], call->length,
                             call->capacity ? wide : NULL, call->capacity);
            break;
        case CALL_TO_NARROW:
            platform->toNarrow(CP_ACP, 0, (const wchar_t*)call->text[0], call->length,
                               call->capacity ? narrow : NULL, call->capacity, NULL, NULL);
            break;
        case CALL_COPY_STRING:
            platform->freeString(platform->copyString((const wchar_t*)call->text[0]));
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
        case CALL_PRINT_W:
            Print(platform, L"%s", (const wchar_t*)call->text[0]);
            break;
        case CALL_SERVICE:
            platform->service();
            break;
        }
    }
}
