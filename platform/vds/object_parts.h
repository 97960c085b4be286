// object_parts.h - what the service's objects hand out in their answers.
#pragma once

#include "com_object.h"

#include <string>
#include <vds_interfaces.h>
#include <vector>

namespace kestro::vds {

// A copy that the caller frees.
WCHAR* TaskString(const std::wstring& text);

// The same thing has the same id each time it is looked at.
GUID IdOf(const wchar_t* kind, const std::wstring& name);

using Objects = std::vector<IUnknown*>; // each owns a reference

HRESULT Enumerate(Objects objects, IEnumVdsObject** enumerator);

// The answer of a method that hands out nothing.
template <class Output>
HRESULT None(Output** output, HRESULT result)
{
    if (output != nullptr)
        *output = nullptr;
    return result;
}

} // namespace kestro::vds
