// outcome.cpp - the exports' return values.
#include "contract/outcome.h"

namespace kestro::test {

unsigned SuccessValue(Form form, HRESULT shutdown)
{
    return form == Form::wide || shutdown != S_OK ? 1 : 0;
}

unsigned FailureValue(Form form)
{
    return form == Form::narrow ? 1 : 0;
}

std::string Shown(const void* argument, const char* name)
{
    return argument ? name : "NULL";
}

} // namespace kestro::test
