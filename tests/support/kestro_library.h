// kestro_library.h - the built Kestro.dll, loaded as any host loads it.
#pragma once

#include <string>
#include <windows.h>

namespace kestro::test {

enum class Form { narrow, wide };

inline constexpr Form forms[] = {Form::narrow, Form::wide};

inline const char* NameOf(Form form)
{
    return form == Form::narrow ? "narrow" : "wide";
}

// A ResultFile's path for either form of an export.
struct ResultFile {
    const char* narrow;
    const wchar_t* wide;
};

// A file beside Kestro.dll, as the build and the packed tests lay it out: bin beside the tests' folder.
std::wstring BuiltFile(const std::wstring& name);

class KestroLibrary {
  public:
    static KestroLibrary& Get();
    // Whether it is a build with checks or counters: larger than what ships, and with more imports.
    static bool Instrumented();

    HMODULE Module() const { return module_; }
    // The file that was loaded.
    const std::wstring& Path() const { return path_; }

    // An export; one that is missing ends the test.
    template <typename Function>
    Function Find(const std::string& name) const
    {
        return reinterpret_cast<Function>(FindAddress(name));
    }

    // Calls the form of an export that takes the ResultFile as its last argument.
    template <typename... Arguments>
    unsigned Call(const std::string& name, Form form, const ResultFile& result,
                  Arguments... arguments) const
    {
        if (form == Form::narrow)
            return Find<unsigned char(__stdcall*)(Arguments..., const char*)>(name)(arguments...,
                                                                                    result.narrow);
        return Find<unsigned char(__stdcall*)(Arguments..., const wchar_t*)>(name + "W")(
            arguments..., result.wide);
    }

  private:
    KestroLibrary();
    void* FindAddress(const std::string& name) const;

    std::wstring path_;
    HMODULE module_;
};

} // namespace kestro::test
