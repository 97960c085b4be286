// header_in_cpp.cpp - the public header alone in a C++ program that uses every function of it.
#include "kestro.h"

#include "surface/header_use.h"

void VisitHeaderFunctionsInCpp(HeaderVisitor visit, void* context)
{
#define FUNCTION(name) visit(context, #name, reinterpret_cast<HeaderFunction>(name));
#include "surface/header_functions.inc"
}
