// findings_test.cpp - inputs that broke the engine, and what it answers now.
#include "catalog.h"
#include "scratch.h"

#include <gtest/gtest.h>

namespace kestro::fuzz {
namespace {

TEST(Findings, ACatalogThatNamesSignedContentAndHoldsNone)
{
    const Scratch scratch;
    WriteFile(scratch / "package.cat", "\x30\x0B\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02");
    WriteFile(scratch / "package.inf", "");
    EXPECT_EQ(servicing::CheckCatalog(scratch / "package.cat", scratch / "package.inf").state,
              servicing::CatalogState::NotSigned);
}

} // namespace
} // namespace kestro::fuzz
