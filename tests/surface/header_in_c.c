/* header_in_c.c - the public header alone in a C11 program that uses every function of it. */
#include "kestro.h"

#include "surface/header_use.h"

void VisitHeaderFunctionsInC(HeaderVisitor visit, void* context)
{
#define FUNCTION(name) visit(context, #name, (HeaderFunction)name);
#include "surface/header_functions.inc"
}
