// setup_inf.cpp - an INF file as SetupAPI reads it.
#include "setup_inf.h"

#include "servicing_error.h"
#include "wine_path.h"

#include <algorithm>

namespace kestro::servicing {
namespace {

// SetupAPI's error codes have a facility of their own among the HRESULTs.
Code CodeOfSetup(DWORD error)
{
    constexpr DWORD setup = 0xE0000000;
    return (error & setup) == setup ? CodeOf((error & 0xFFFF) | 0x800F0000)
                                    : HRESULT_FROM_WIN32(error);
}

std::string Field(INFCONTEXT& line, DWORD index)
{
    DWORD length = 0;
    if (!SetupGetStringFieldW(&line, index, nullptr, 0, &length))
        return {};
    std::vector<WCHAR> text(length);
    if (!SetupGetStringFieldW(&line, index, text.data(), length, nullptr))
        return {};
    return Utf8(text.data());
}

std::vector<std::string> SectionNames(HINF inf)
{
    std::vector<std::string> names;
    // Section names have at most 255 characters.
    WCHAR name[256];
    DWORD length = 0;
    for (UINT index = 0; SetupEnumInfSectionsW(inf, index, name, ARRAYSIZE(name), &length); ++index)
        names.push_back(Utf8(name));
    return names;
}

} // namespace

SetupInf::SetupInf(const std::string& hostPath)
{
    UINT line = 0;
    inf_ = SetupOpenInfFileW(WindowsPath(hostPath).data(), nullptr, INF_STYLE_WIN4, &line);
    if (inf_ == INVALID_HANDLE_VALUE)
        throw ServicingError(CodeOfSetup(GetLastError()),
                             hostPath + " is no driver INF (line " + std::to_string(line) + ")");
    names_ = SectionNames(inf_);
    try {
        RequireSignature(hostPath);
    } catch (...) {
        SetupCloseInfFile(inf_);
        throw;
    }
}

SetupInf::~SetupInf()
{
    SetupCloseInfFile(inf_);
}

void SetupInf::RequireSignature(const std::string& hostPath) const
{
    const std::string signature = Value("Version", "Signature");
    if (!EqualNames(signature, "$Windows NT$") && !EqualNames(signature, "$Chicago$"))
        throw ServicingError(CodeOfSetup(ERROR_WRONG_INF_STYLE),
                             hostPath + " has no signature of a Windows INF");
}

std::vector<InfLine> SetupInf::Section(const std::string& name) const
{
    std::vector<InfLine> lines;
    INFCONTEXT context = {};
    BOOL found = SetupFindFirstLineW(inf_, Wide(name).data(), nullptr, &context);
    for (; found; found = SetupFindNextLine(&context, &context)) {
        InfLine line;
        line.key = Field(context, 0);
        const DWORD count = SetupGetFieldCount(&context);
        for (DWORD index = 1; index <= count; ++index)
            line.values.push_back(Field(context, index));
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace kestro::servicing
