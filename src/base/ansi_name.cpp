// ansi_name.cpp - a name from the platform or the host as ANSI text.
#include "base/ansi_name.h"

#include <cwchar>
#include <new>

#include <windows.h>

#include <comdef.h>

namespace kestro::library {

void AnsiName::FreeString::operator()(wchar_t* copy) const
{
    SysFreeString(copy);
}

AnsiName::AnsiName(const wchar_t* name) : copy_(SysAllocString(name))
{
    if (!copy_) {
        if (name != nullptr)
            _com_issue_error(E_OUTOFMEMORY);
        return;
    }

    const int wideLength = static_cast<int>(std::wcslen(copy_.get())) + 1;
    const int length =
        WideCharToMultiByte(CP_ACP, 0, copy_.get(), wideLength, nullptr, 0, nullptr, nullptr);
    if (length <= 0)
        _com_issue_error(HRESULT_FROM_WIN32(GetLastError()));

    text_.reset(new (std::nothrow) char[static_cast<std::size_t>(length)]);
    if (!text_)
        _com_issue_error(E_OUTOFMEMORY);
    if (WideCharToMultiByte(CP_ACP, 0, copy_.get(), wideLength, text_.get(), length, nullptr,
                            nullptr) <= 0)
        _com_issue_error(HRESULT_FROM_WIN32(GetLastError()));
}

} // namespace kestro::library
