/* header_use.h - hands out the functions of the public header as two hosts link them. */
#pragma once

#if defined(__cplusplus)
extern "C" {
#endif

typedef void (*HeaderFunction)(void);
typedef void (*HeaderVisitor)(void* context, const char* name, HeaderFunction function);

void VisitHeaderFunctionsInC(HeaderVisitor visit, void* context);
void VisitHeaderFunctionsInCpp(HeaderVisitor visit, void* context);

#if defined(__cplusplus)
}
#endif
