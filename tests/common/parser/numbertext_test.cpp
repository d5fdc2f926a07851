#include "korv/common/parser/numbertext.h"
#include "support/test.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

using namespace KORV;
using namespace KORV::Common::Parser;

KORV_TEST(Numbers, textIsWhatTheCLibraryMakesOfThem)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i)
    {
        const uint64 bits = random();
        float f;
        double d;
        std::memcpy(&f, &bits, sizeof(f));
        std::memcpy(&d, &bits, sizeof(d));
        char expected[512];
        std::snprintf(expected, sizeof(expected), "%g/%g/%f", static_cast<double>(f), d, static_cast<double>(f));
        const NumberText text =
            NumberText().append(f).append("/").append(d).append("/").appendFixed(static_cast<double>(f));
        ASSERT_STREQ(text.c_str(), expected);
        std::snprintf(expected, sizeof(expected), "%.9g", static_cast<double>(f));
        if (f == f)
        {
            ASSERT_EQ(parseFloat(expected), f) << expected;
        }
    }
    for (const char* text : {"",
                             " 1.5x",
                             "+2",
                             "-+2",
                             "--2",
                             ".5",
                             "5.",
                             "1e",
                             "1e400",
                             "-1e400",
                             "1e-400",
                             "0x1p-3",
                             "0x",
                             "inf",
                             "-infinity",
                             "1e-45",
                             "3.5e38",
                             "0.00000000000000000000001e-320",
                             "\t\n7",
                             "1e99999999999999999999",
                             "1e-99999999999999999999",
                             "1,5",
                             "0xfp-5000",
                             "0xfp5000"})
    {
        KORV_CONTEXT("'" << text << "'");
        EXPECT_EQ(parseDouble(text), std::strtod(text, nullptr));
        EXPECT_EQ(parseFloat(text), std::strtof(text, nullptr));
    }
    for (const char* text : {"", "-", "- 1", "+5", " -7z", "2147483648", "-2147483649", "9223372036854775808",
                             "-99999999999999999999", "18446744073709551616", "0x10", "1e3"})
    {
        KORV_CONTEXT("'" << text << "'");
        EXPECT_EQ(parseInt64(text), std::strtoll(text, nullptr, 10));
        EXPECT_EQ(parseUInt64(text), std::strtoull(text, nullptr, 10));
    }
}
