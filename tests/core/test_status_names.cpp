// vekr_status.h names every status code that vekr.h declares, by the
// enumerator's own name, read from the header text.
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "vekr_status.h"

TEST(StatusNames, EveryCodeOfTheHeaderHasItsNameAndAMessage)
{
    std::ifstream in(VEKR_PUBLIC_HEADER);
    std::stringstream text;
    text << in.rdbuf();
    const std::string h = text.str();
    const std::regex code(R"((vekSts\w+) = (-?\d+))");
    int seen = 0;
    for (std::sregex_iterator it(h.begin(), h.end(), code), end; it != end; ++it, ++seen) {
        const VekStatus s = std::stoi((*it)[2]);
        EXPECT_EQ(std::string(vekrStatusName(s)), (*it)[1].str());
        EXPECT_STRNE(vekrStatusMessage(s), vekrStatusMessage(12345));
    }
    EXPECT_EQ(seen, 14);
    EXPECT_STREQ(vekrStatusName(12345), "vekStsUnknown");
}
