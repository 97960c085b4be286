// findings_test.cpp - inputs that broke the engine, and what it answers now.
#include "catalog.h"
#include "mount_record.h"
#include "refusal.h"
#include "scratch.h"

namespace kestro::fuzz {
namespace {

using servicing::MountRegistry;
namespace code = servicing::code;

TEST(Findings, ACatalogThatNamesSignedContentAndHoldsNone)
{
    const Scratch scratch;
    WriteFile(scratch / "package.cat", "\x30\x0B\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02");
    WriteFile(scratch / "package.inf", "");
    EXPECT_EQ(servicing::CheckCatalog(scratch / "package.cat", scratch / "package.inf").state,
              servicing::CatalogState::NotSigned);
}

std::string Record(const std::string& index, const std::string& size, const std::string& directory)
{
    return R"({"image": "/nonexistent/image.wim", "imageIdentity": [0, 0, )" + size +
           R"(, 0], "index": )" + index + R"(, "directory": ")" + directory +
           R"(", "directoryIdentity": [0, 0, 0, 0], "readOnly": false, "status": "mounted"})";
}

TEST(Findings, ARecordWithANumberThatItsFieldCannotHold)
{
    const Scratch scratch;
    const fs::path record = scratch / "records/0/record.json";
    const MountRegistry registry(scratch / "records");
    const auto find = [&] { registry.FindDirectory("/nonexistent/mount"); };
    WriteFile(record, Record("4294967295", "-9223372036854775808", "/nonexistent/mount"));
    EXPECT_CODE(find(), code::ok);
    for (const char* index : {"1e300", "1.5", "-1", "4294967296", "true", "\"1\""}) {
        WriteFile(record, Record(index, "0", "/nonexistent/mount"));
        EXPECT_CODE(find(), code::not_a_valid_mount) << index;
    }
    WriteFile(record, Record("1", "9223372036854775808", "/nonexistent/mount"));
    EXPECT_CODE(find(), code::not_a_valid_mount);
}

TEST(Findings, ANextRecordOfAnotherDirectory)
{
    const Scratch scratch;
    WriteFile(scratch / "records/0/record.json", Record("1", "0", "/nonexistent/mount"));
    WriteFile(scratch / "records/0/next.json", Record("1", "0", "/nonexistent/other"));
    EXPECT_CODE(MountRegistry(scratch / "records").FindDirectory("/nonexistent/mount"),
                code::not_a_valid_mount);
}

} // namespace
} // namespace kestro::fuzz
