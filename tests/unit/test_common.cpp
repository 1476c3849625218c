// Common services that need no board: the bit printer, the shell runner's
// verdicts, numbers read from a command, file existence, operator
// confirmation read from a pipe on standard input, and the TFTP command line
// (run against a stand-in tftp put first on PATH).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "equ_common.h"
#include "stdin_feed.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string output(const std::function<void()> &fn)
{
    CaptureStdout();
    fn();
    return GetCapturedStdout();
}

// Answers the confirmation prompt with strInput through a pipe on fd 0.
int confirm(const std::string &strInput, std::string *pstrOut = nullptr)
{
    int iRet = -1;
    std::string strOut = withKeysOnStdin(strInput, [&] { iRet = EQU_CheckYesInput(); });
    if (pstrOut != nullptr) {
        *pstrOut = strOut;
    }
    return iRet;
}

}  // namespace

TEST(EquCommon, PrintBitShowsLowBitsAndWrapsTheShift)
{
    auto bits = [](uint8_t v, uint8_t w) { return output([=] { EQU_Print_Bit(v, w); }); };
    EXPECT_EQ("0101", bits(5, 4));
    EXPECT_EQ("11111111", bits(255, 8));
    EXPECT_EQ("", bits(255, 0));
    EXPECT_EQ("", bits(255, 9));
    EXPECT_EQ("", bits(255, 32));
    EXPECT_EQ("10000001", bits(0x81, 40));  // shift count 39 wraps to 7
}

TEST(EquCommon, ShellVerdictsNumbersAndFiles)
{
    EXPECT_EQ(0u, EQU_System("true"));
    EXPECT_EQ(200u, EQU_System("exit 3"));
    EXPECT_EQ(0u, EQU_System("kill -9 $$"));  // ended by a signal: a pass
    EXPECT_EQ(42u, EQU_CmdRes_Num("printf '42\\n17\\n'"));
    EXPECT_EQ(123u, EQU_CmdRes_Num("echo '  123abc'"));
    EXPECT_EQ(0u, EQU_CmdRes_Num("echo no digits"));
    EXPECT_EQ(static_cast<uint32_t>(-7), EQU_CmdRes_Num("echo -7"));
    EXPECT_EQ("\r\nfgets error[true]\n",
              output([] { EXPECT_EQ(0xFFFFFFFFu, EQU_CmdRes_Num("true")); }));
    EXPECT_EQ(0u, EQU_IsFileExist("/"));
    EXPECT_EQ(200u, EQU_IsFileExist("/nonexistent/equ"));
    EXPECT_EQ(200u, EQU_IsFileExist(nullptr));
}

TEST(EquCommon, OnlyASingleYConfirms)
{
    std::string strOut;
    EXPECT_EQ(1, confirm("y\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y", strOut);
    EXPECT_EQ(1, confirm("y\bY\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y\b \bY", strOut);
    // erasing an empty answer does nothing; line feed and controls are dropped unechoed
    EXPECT_EQ(1, confirm("\x7f\by\n\x01\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)y", strOut);
    EXPECT_EQ(0, confirm("YY\r"));
    EXPECT_EQ(0, confirm("yes\r"));
    EXPECT_EQ(0, confirm("\r"));
    EXPECT_EQ(0, confirm("n\ry\r"));
    EXPECT_EQ(0, confirm("y"));  // the console went away
}

TEST(EquCommon, ConfirmationAnswerHolds99Characters)
{
    std::string strOut, strLong(99, 'a');
    EXPECT_EQ(0, confirm(strLong + "b\r", &strOut));
    EXPECT_EQ("\r\nAre you sure?(Y/N)" + strLong + "b\b \b", strOut);
    // the hundredth character was dropped: 99 erasures empty the answer
    EXPECT_EQ(1, confirm(strLong + "b" + std::string(99, '\b') + "y\r"));
}

class EquTftp : public testing::Test {
  protected:
    void SetUp() override
    {
        char acDir[] = "/tmp/equ_tftp_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(acDir));
        strDir = acDir;
        std::ofstream(strDir + "/tftp")
            << "#!/bin/sh\necho \"$@\" >> " << strDir << "/args\nexit ${TFTP_RC:-0}\n";
        chmod((strDir + "/tftp").c_str(), 0755);
        strPath = getenv("PATH");
        setenv("PATH", (strDir + ":" + strPath).c_str(), 1);
    }
    void TearDown() override
    {
        setenv("PATH", strPath.c_str(), 1);
        unsetenv("TFTP_RC");
        memset(acEquServerip, 0, sizeof(acEquServerip));
        EXPECT_EQ(0, system(("rm -rf " + strDir).c_str()));
    }
    std::string args()
    {
        std::ifstream in(strDir + "/args");
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    std::string strDir, strPath;
};

TEST_F(EquTftp, FetchSendAndFailure)
{
    strcpy(acEquServerip, "1.2.3.4");
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/local", "remote", 0));
    EXPECT_EQ(0u, EQU_TftpTransferFile("/tmp/l2", "r2", 1));
    EXPECT_EQ("-g 1.2.3.4 -l /tmp/local -r remote\n-p 1.2.3.4 -l /tmp/l2 -r r2\n", args());
    strcpy(acEquServerip, "192.168.100.200");
    setenv("TFTP_RC", "1", 1);
    EXPECT_EQ("\r\nerror: tftp -p 192.168.100.200 -l a -r b failed",
              output([] { EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 1)); }));
}

TEST_F(EquTftp, RefusedWithoutServerOrWhenTheCommandWouldNotFit)
{
    strcpy(acEquServerip, "1.2.3");
    EXPECT_EQ("\r\nerror: you have not set the serverip",
              output([] { EXPECT_EQ(200u, EQU_TftpTransferFile("a", "b", 0)); }));
    strcpy(acEquServerip, "1.2.3.4");
    // "tftp -g 1.2.3.4 -l  -r " takes 23 of the 99 characters
    std::string strLocal(40, 'L'), strFits(36, 'R'), strTooLong(37, 'R');
    EXPECT_EQ(0u, EQU_TftpTransferFile(strLocal.c_str(), strFits.c_str(), 0));
    std::string strOut = output(
        [&] { EXPECT_EQ(200u, EQU_TftpTransferFile(strLocal.c_str(), strTooLong.c_str(), 0)); });
    EXPECT_EQ(0u, strOut.rfind("\r\nerror: tftp -g 1.2.3.4 -l ", 0));
    std::string strArgs = args();
    EXPECT_EQ(1, std::count(strArgs.begin(), strArgs.end(), '\n'));
}
