// result_file_test.cpp - ResultFiles that are no fresh INI files. What lies in them afterwards is what the
// system's own writers leave there for the same writes.
#include "hostile/hostile_case.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace kestro::test {
namespace {

namespace fs = std::filesystem;

void Write(const fs::path& file, const std::string& bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

// The times differ between two runs, and nothing else may.
std::string WithoutDigits(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
    return bytes;
}

// The write test's keys, written without the library. Its wide form never stamps the log line.
void WriteAsTheSystem(const fs::path& file, bool wide)
{
    const std::string path = file.string();
    const auto write = [&](const char* section, const char* key, const char* value) {
        WritePrivateProfileStringA(section, key, value, path.c_str());
    };
    constexpr char stamp[] = "20210305140709";
    write("KESTRO_TEST", "TEST", "TEST");
    write("Status", "LastWrite", stamp);
    write("STATUS", "Status", "C");
    write("Status", "LastWrite", stamp);
    write("Log", "Righe", "2");
    write("Log", "2 - 05-03-2021 14:07:09", "This is a test created by Kestro.dll");
    if (!wide)
        write("Status", "LastWrite", stamp);
}

class HostileResultFiles : public HostileCase {
  protected:
    // Both forms of the write test on a file with these bytes.
    void ExpectAsTheSystem(const std::string& bytes, const char* what)
    {
        for (const bool wide : {false, true}) {
            const fs::path ours = Path(L"ours.ini"), systems = Path(L"systems.ini");
            Write(ours, bytes);
            Write(systems, bytes);
            if (wide)
                WriteTestW(ours.c_str());
            else
                WriteTest(ours.string().c_str());
            WriteAsTheSystem(systems, wide);
            // Not EXPECT_EQ: the files may be large.
            EXPECT_TRUE(WithoutDigits(ours) == WithoutDigits(systems))
                << what << (wide ? ", wide" : ", narrow");
            EXPECT_NE(WithoutDigits(ours).size(), bytes.size()) << what;
            fs::remove(ours);
            fs::remove(systems);
        }
    }
    // A servicing call works whatever its ResultFile is.
    void ExpectServes(const fs::path& file)
    {
        EXPECT_EQ(GetDrivers(Image(), LogFile(), file.string().c_str()), 0) << file;
        EXPECT_EQ(GetDriversW(Image(), LogFile(), file.c_str()), 1) << file;
        WriteTest(file.string().c_str());
        WriteTestW(file.c_str());
    }
};

const std::string kContent = "; notes\r\n[Host]\r\nJob=42\r\n\r\n[Log]\r\nRighe=9\r\nOld=line\r\n";

std::string Utf16(const std::string& text)
{
    std::string bytes;
    for (const char c : text)
        bytes.append({c, '\0'});
    return bytes;
}

TEST_F(HostileResultFiles, MarksOfEncodings)
{
    std::string big_endian = "\xFE\xFF" + std::string(1, '\0') + Utf16(kContent);
    big_endian.pop_back();
    ExpectAsTheSystem("\xEF\xBB\xBF" + kContent, "UTF-8");
    ExpectAsTheSystem("\xEF\xBB\xBF", "UTF-8, empty");
    ExpectAsTheSystem("\xFF\xFE" + Utf16(kContent), "UTF-16");
    ExpectAsTheSystem(big_endian, "UTF-16, big-endian");
    // What becomes of half a character is the system's secret.
    const fs::path odd = Path(L"odd.ini");
    Write(odd, "\xFF\xFE" + Utf16(kContent) + "x");
    ExpectServes(odd);
    EXPECT_NE(WithoutDigits(odd).find(Utf16("Job=##")), std::string::npos);
}

TEST_F(HostileResultFiles, LinesThatAreNone)
{
    ExpectAsTheSystem("[Host]\r\nJob=42", "no last line end");
    ExpectAsTheSystem("[Host]\nJob=42\n[Log]\nRighe=9\n", "line feeds alone");
    ExpectAsTheSystem("[Host]\rJob=42\r", "carriage returns alone");
    ExpectAsTheSystem("[Host]\r\nJob=" + std::string(100000, 'x'), "one long line");
    ExpectAsTheSystem("[" + std::string(70000, 'S'), "a section without an end");
    ExpectAsTheSystem("=\r\n=value\r\n[]\r\n[\r\n]\r\n;\r\nkey\r\n", "halves of lines");
}

TEST_F(HostileResultFiles, SectionsAndKeysTwice)
{
    ExpectAsTheSystem(kContent + "[LOG]\r\nRighe=7\r\n[Host]\r\nJob=43\r\n" + kContent, "sections");
    ExpectAsTheSystem("[Status]\r\nLastWrite=1\r\nlastwrite=2\r\nStatus=A\r\nSTATUS=B\r\n", "keys");
}

TEST_F(HostileResultFiles, NoText)
{
    ExpectAsTheSystem(std::string(5000, '\0'), "zeros");
    std::string every_byte;
    for (int i = 0; i < 4096; ++i)
        every_byte += static_cast<char>(i * 167 + i / 256);
    ExpectAsTheSystem(every_byte, "every byte");
    ExpectAsTheSystem("[" + every_byte + "]=\r\n" + every_byte, "every byte in a section");
}

// Two megabytes; a hundred by ./dev soak.
TEST_F(HostileResultFiles, Large)
{
    const size_t size = Thorough() ? 100'000'000 : 2'000'000;
    std::string bytes;
    bytes.reserve(size + 100);
    for (int section = 0; bytes.size() < size; ++section) {
        bytes += "[Section " + std::to_string(section) + "]\r\n";
        for (int key = 0; key < 500; ++key)
            bytes += "key " + std::to_string(key) + "=" + std::string(200, 'v') + "\r\n";
    }
    std::printf("%zu bytes\n", bytes.size());
    ExpectAsTheSystem(bytes, "large");
}

TEST_F(HostileResultFiles, ADirectory)
{
    const fs::path directory = Path(L"directory.ini");
    fs::create_directory(directory);
    Write(directory / "host.txt", "kept");
    ExpectServes(directory);
    EXPECT_TRUE(fs::is_directory(directory));
    EXPECT_EQ(fs::file_size(directory / "host.txt"), 4u);
}

TEST_F(HostileResultFiles, AMissingFolder)
{
    ExpectServes(Path(L"missing/result.ini"));
    EXPECT_FALSE(fs::exists(Path(L"missing")));
}

TEST_F(HostileResultFiles, AReadOnlyFile)
{
    // What keeps a user from writing does not keep an administrator of the machine below Wine: the
    // system's writers tell whether this file can be written.
    const auto protect = [](const fs::path& file) {
        Write(file, kContent);
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    };
    const fs::path ours = Path(L"ours.ini"), systems = Path(L"systems.ini");
    protect(ours);
    protect(systems);
    WriteTest(ours.string().c_str());
    WriteAsTheSystem(systems, false);
    EXPECT_EQ(WithoutDigits(ours), WithoutDigits(systems));
    ExpectServes(ours);
    for (const fs::path& file : {ours, systems})
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(HostileResultFiles, AFileInUse)
{
    const fs::path file = Path(L"kept.ini");
    Write(file, kContent);
    const std::string before = WithoutDigits(file);
    const HANDLE alone = CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(alone, INVALID_HANDLE_VALUE);
    ExpectServes(file);
    CloseHandle(alone);
    EXPECT_EQ(WithoutDigits(file), before);
}

} // namespace
} // namespace kestro::test
