// HDMI monitor identification from its EDID.
//
// Command:
//   test edid PORT      PORT 0 reads connector HDMI-A-2, PORT 1 HDMI-A-1
// Pass: the EDID's manufacturer id gave three letters A-Z, printed as
// "HDMI Manufacturer Name: DEL". Fail: the listing could not be made or
// opened, or the id is not three letters (no monitor: an empty EDID).
//
// Values:
//   <port>  0~1 (a word that is not a number reads as 0)
//
// Touches: "modetest" (makes the display driver probe its outputs; its
// result does not matter); "hexdump /sys/class/drm/card0/card0-HDMI-A-N/edid"
// into /tmp/edid_info, of which the fifth 16-bit word of the first line
// (characters 28-31: EDID bytes 8 and 9, byte-swapped) is read.
//
// Kept on purpose:
// - A port that is not a number passes the validator (it reads as 0) and
//   reads the port-0 connector.
// - The validator's message names HDMI0 twice and uses full-width colons
//   (GBK): harness scripts match it as it stands.
// - /tmp/edid_info is never removed, and stays open after a failed letter
//   check.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr const char *kEdidInfo = "/tmp/edid_info";
constexpr int kPort0Connector = 2;
constexpr off_t kIdOffset = 28;  // the fifth word of hexdump's first line

int to_int(const char *pcText)
{
    return static_cast<int>(std::clamp<long>(strtol(pcText, nullptr, 10), INT_MIN, INT_MAX));
}

uint32_t EQU_EDID_CheckResult(char cLetter)
{
    return cLetter >= 'A' && cLetter <= 'Z' ? EQU_OK : EQU_FAIL;
}

// The manufacturer id (big-endian) from hexdump's listing of the EDID.
uint32_t read_id(int fd)
{
    char acHex[5] = {};
    if (lseek(fd, kIdOffset, SEEK_SET) >= 0) {
        ssize_t lGot = read(fd, acHex, 4);
        (void)lGot;  // a short listing converts to a short (or zero) id
    }
    uint32_t u32Word = static_cast<uint32_t>(strtoul(acHex, nullptr, 16));
    return ((u32Word << 8) & 0xFFFF) + ((u32Word >> 8) & 0xFF);
}

// ---- validators ----

uint64_t EQU_CmdCheck_EDIDPort(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int iPort = to_int(pcToken);
    if (iPort == 0 || iPort == 1) {
        return EQU_OK;
    }
    printf("\r\nVGA\xA3\xBA"
           "0,HDMI0\xA3\xBA"
           "1,HDMI0\xA3\xBA"
           "2 , please check you input");
    return EQU_FAIL;
}

// No element checks the output type in this build.
[[maybe_unused]] uint64_t EQU_CmdCheck_EDIDType(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    for (const char *pcType : {"hdmi", "vga", "dvi"}) {
        if (strcmp(pcToken, pcType) == 0) {
            return EQU_OK;
        }
    }
    printf("\r\ncmd can only be hdmi, vga or dvi, please check");
    return EQU_FAIL;
}

// ---- handlers ----

uint64_t EQU_CmdProc_GetEDID(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    int iConnector = kPort0Connector;
    if (CLI_IsdigitString(acPort) && to_int(acPort) != 0) {
        iConnector = to_int(acPort);
    }
    (void)system("modetest 1>/dev/null 2>&1");
    char acArg[96];
    snprintf(acArg, sizeof(acArg), "/sys/class/drm/card0/card0-HDMI-A-%d/edid >  %s", iConnector,
             kEdidInfo);
    char acCmd[112];
    snprintf(acCmd, sizeof(acCmd), "hexdump %s", acArg);
    if (system(acCmd) < 0) {
        printf("\r\nhexdump  %s failed\n", acArg);
        return EQU_FAIL;
    }
    int fd = open(kEdidInfo, O_RDONLY);
    if (fd < 0) {
        printf("\r\nopen %s failed", kEdidInfo);
        return EQU_FAIL;
    }
    uint32_t u32Id = read_id(fd);
    char acName[3] = {static_cast<char>(((u32Id >> 10) & 0x1F) + 64),
                      static_cast<char>(((u32Id >> 5) & 0x1F) + 64),
                      static_cast<char>((u32Id & 0x1F) + 64)};
    if (std::any_of(acName, acName + 3, [](char c) { return EQU_EDID_CheckResult(c) != EQU_OK; })) {
        printf("\r\nerror: get edid failed");
        return EQU_FAIL;  // fd stays open: see the header
    }
    printf("\r\nHDMI Manufacturer Name: %c%c%c", acName[0], acName[1], acName[2]);
    close(fd);
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_EDID(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "edid", HELP_EDID);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_EDIDPort, HELP_EDID_PORT);
    CLI_InstallCmd(pT, 4, "$1 $2 $4", EQU_CmdProc_GetEDID);  // test edid 0
    CLI_FreeCmdTemplet(pT, 4);
}
