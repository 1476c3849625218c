// RTC, date and time, time zones.
//
// Commands:
//   test rtc settime hh:mm:ss yyyy-mm-dd   chip, nvram, then the system clock
//   test rtc gettime                       the chip beside what was last set
//   test rtc setzone ZONE                  driver's zone and "factory_timezone"
//   test rtc getzone                       driver's zone beside the typed one
//   test rtc battery                       always passes, prints nothing
// Pass: every step of the command worked. Fail: a node did not open, a request, a
// driver call or an nvram access failed, or the year lies outside 1980-2037.
//
// Needs: a fresh board fails "test rtc gettime" ("read rtc date from flash
// error") until "test rtc settime" has stored a date and time in nvram; the
// other commands need nothing.
//
// Values:
//   <time>       hh:mm:ss, 00:00:00 to 23:59:59
//   <day>        yyyy-mm-dd, years 2000 to 2037
//   <time zone>  a zone name such as GMT+8 (hours east positive)
//
// Touches: /dev/rtc, else /dev/rtc0, else /dev/misc/rtc (RTC_SET_TIME
// 0x4024700A, RTC_RD_TIME 0x80247009); nvram "rtcdate", "rtctime",
// "factory_timezone"; DRV_PerpCtl 0x1610/0x1611 with the 40-byte zone record;
// the shell's "hwclock -s".
//
// Kept on purpose:
// - The operator counts hours east as positive ("GMT+8"), the driver takes
//   the POSIX sign, so names are translated both ways; names the tables do
//   not know go through unchanged.
// - The chip accepts 1980-2037 while the date validator allows 2000-2037: the
//   wider range is a second guard.
// - The battery has no sensor on these boards: it is reported good.
// - A failed nvram read in getzone says "save ...", as the factory scripts expect.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kRtcSetTime = 0x4024700A;
constexpr unsigned long kRtcReadTime = 0x80247009;
static_assert(kRtcSetTime == RTC_SET_TIME && kRtcReadTime == RTC_RD_TIME);
static_assert(sizeof(struct rtc_time) == 36);

constexpr const char *kRtcNodes[] = {"/dev/rtc", "/dev/rtc0", "/dev/misc/rtc"};
constexpr size_t kSavedLen = 20;  // bytes of "rtcdate"/"rtctime" kept on read
constexpr size_t kTypedLen = 16;  // bytes of a typed time or date kept
constexpr int kZoneSet = 1;

struct ZoneReq {
    uint8_t aucRsv[8];
    char szZone[32];
};
static_assert(sizeof(ZoneReq) == 40);

const uint8_t gszDayOfMonth[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

struct ZonePair {
    const char *pcFrom;
    const char *pcTo;
};

// Operator form to driver form; the signs swap.
const ZonePair kZoneSetTbl[] = {
    {"GMT", "GMT"},           {"GMT-0", "GMT+0"},
    {"GMT-1", "GMT+1"},       {"GMT-2", "GMT+2"},
    {"GMT-3", "GMT+3"},       {"GMT-4", "GMT+4"},
    {"GMT-5", "GMT+5"},       {"GMT-6", "GMT+6"},
    {"GMT-7", "GMT+7"},       {"GMT-8", "GMT+8"},
    {"GMT-9", "GMT+9"},       {"GMT-10", "GMT+10"},
    {"GMT-11", "GMT+11"},     {"GMT-12", "GMT+12"},
    {"GMT+0", "GMT-0"},       {"GMT+1", "GMT-1"},
    {"GMT+2", "GMT-2"},       {"GMT+3", "GMT-3"},
    {"GMT+4", "GMT-4"},       {"GMT+5", "GMT-5"},
    {"GMT+6", "GMT-6"},       {"GMT+7", "GMT-7"},
    {"GMT+8", "GMT-8"},       {"GMT+9", "GMT-9"},
    {"GMT+10", "GMT-10"},     {"GMT+11", "GMT-11"},
    {"GMT+12", "GMT-12"},     {"GMT+13", "GMT-13"},
    {"GMT+14", "GMT-14"},     {"GMT+3.5", "Tehran"},
    {"GMT+4.5", "Kabul"},     {"GMT+5.5", "Calcutta"},
    {"GMT+5.75", "Katmandu"}, {"GMT+6.5", "Rangoon"},
    {"GMT+9.5", "Adelaide"},  {"GMT-3.5", "Newfoundland"},
    {"GMT-4.5", "Caracas"},   {"", ""},
};

// Driver form to operator form; "CST" and "NDT" have one fixed reading each.
const ZonePair kZoneGetTbl[] = {
    {"GMT", "GMT"},       {"GMT+0", "GMT-0"},   {"GMT+1", "GMT-1"},   {"GMT+2", "GMT-2"},
    {"GMT+3", "GMT-3"},   {"GMT+4", "GMT-4"},   {"GMT+5", "GMT-5"},   {"GMT+6", "GMT-6"},
    {"GMT+7", "GMT-7"},   {"GMT+8", "GMT-8"},   {"GMT+9", "GMT-9"},   {"GMT+10", "GMT-10"},
    {"GMT+11", "GMT-11"}, {"GMT+12", "GMT-12"}, {"GMT-0", "GMT+0"},   {"GMT-1", "GMT+1"},
    {"GMT-2", "GMT+2"},   {"GMT-3", "GMT+3"},   {"GMT-4", "GMT+4"},   {"GMT-5", "GMT+5"},
    {"GMT-6", "GMT+6"},   {"GMT-7", "GMT+7"},   {"GMT-8", "GMT+8"},   {"GMT-9", "GMT+9"},
    {"GMT-10", "GMT+10"}, {"GMT-11", "GMT+11"}, {"GMT-12", "GMT+12"}, {"GMT-13", "GMT+13"},
    {"GMT-14", "GMT+14"}, {"UCT", "UCT"},       {"UTC", "UTC"},       {"IRST", "GMT+3.5"},
    {"AFT", "GMT+4.5"},   {"IST", "GMT+5.5"},   {"NPT", "GMT+5.75"},  {"MMT", "GMT+6.5"},
    {"CST", "GMT+9.5"},   {"NDT", "GMT-3.5"},   {"VET", "GMT-4.5"},   {"", ""},
};

// Two names of one zone: the driver's report (left) is shown as the typed one.
const ZonePair kZoneEquTbl[] = {
    {"GMT+3.5", "Tehran"},
    {"GMT+4.5", "Kabul"},
    {"GMT+5.5", "Calcutta"},
    {"GMT+5.75", "Katmandu"},
    {"GMT+6.5", "Rangoon"},
    {"GMT+9.5", "Adelaide"},
    {"GMT-3.5", "Newfoundland"},
    {"GMT-4.5", "Caracas"},
    {"GMT", "GMT+0"},
    {"GMT", "GMT-0"},
    {"", ""},
};

bool all_digits(const char *pc, size_t n)
{
    for (size_t i = 0; i < n; i++) {
        if (pc[i] < '0' || pc[i] > '9') {
            return false;
        }
    }
    return true;
}

// Reads the next number and steps over the one separator after it.
uint64_t next_field(const char **ppc)
{
    uint64_t ul = CLI_Skip_AtoI(ppc);
    if (**ppc != '\0') {
        (*ppc)++;
    }
    return ul;
}

// Copies at most n - 1 bytes of pcSrc and terminates.
void copy_cut(char *pcDst, size_t n, const char *pcSrc)
{
    size_t ulLen = strnlen(pcSrc, n - 1);
    memcpy(pcDst, pcSrc, ulLen);
    pcDst[ulLen] = '\0';
}

bool is_leap(uint64_t ulYear)
{
    return (ulYear % 4 == 0 && ulYear % 100 != 0) || ulYear % 400 == 0;
}

// The first node of the three that opens, or a failed handle.
int rtc_open(int iFlags)
{
    for (const char *pc : kRtcNodes) {
        int fd = open(pc, iFlags);
        if (fd >= 0) {
            return fd;
        }
    }
    printf("\r\nopen rtc dev failed");
    return -1;
}

uint32_t EQU_RtcSetTimeToChip(const char *pcDate, const char *pcTime)
{
    char *pcEnd = nullptr;
    struct rtc_time stTm {};
    stTm.tm_year = static_cast<int>(strtol(pcDate, &pcEnd, 10));
    stTm.tm_mon = static_cast<int>(strtol(*pcEnd ? pcEnd + 1 : pcEnd, &pcEnd, 10));
    stTm.tm_mday = static_cast<int>(strtol(*pcEnd ? pcEnd + 1 : pcEnd, &pcEnd, 10));
    stTm.tm_hour = static_cast<int>(strtol(pcTime, &pcEnd, 10));
    stTm.tm_min = static_cast<int>(strtol(*pcEnd ? pcEnd + 1 : pcEnd, &pcEnd, 10));
    stTm.tm_sec = static_cast<int>(strtol(*pcEnd ? pcEnd + 1 : pcEnd, &pcEnd, 10));
    if (stTm.tm_year < 1980 || stTm.tm_year > 2037) {
        printf("\r\nyear:%d is error \r", stTm.tm_year);
        return EQU_FAIL;
    }
    stTm.tm_mon -= 1;
    stTm.tm_year -= 1900;
    EQU_Node node(rtc_open(O_WRONLY));
    if (!node) {
        return EQU_FAIL;
    }
    if (node.request(kRtcSetTime, &stTm) != 0) {
        printf("\r\nwrite rtc failed");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_RtcGetTimeFromChip(struct rtc_time *pstTm)
{
    EQU_Node node(rtc_open(O_RDONLY));
    if (!node) {
        return EQU_FAIL;
    }
    if (node.request(kRtcReadTime, pstTm) != 0) {
        printf("\r\nread rtc failed");
        return EQU_FAIL;
    }
    pstTm->tm_mon += 1;
    pstTm->tm_year += 1900;
    return EQU_OK;
}

uint32_t set_env(const char *pcName, const char *pcValue)
{
    static EQU_ENV_S stEnv;  // 5 KiB: kept off the stack
    memset(&stEnv, 0, sizeof(stEnv));
    snprintf(stEnv.szName, sizeof(stEnv.szName), "%s", pcName);
    snprintf(stEnv.szValue, sizeof(stEnv.szValue), "%s", pcValue);
    return EQU_SetEnvToFlash(&stEnv);
}

// Copies at most ulLen - 1 bytes of the variable into pcOut.
uint32_t get_env(const char *pcName, char *pcOut, size_t ulLen)
{
    static EQU_ENV_S stEnv;
    memset(&stEnv, 0, sizeof(stEnv));
    snprintf(stEnv.szName, sizeof(stEnv.szName), "%s", pcName);
    if (EQU_GetEnvFromFlash(&stEnv) != EQU_OK) {
        return EQU_FAIL;
    }
    copy_cut(pcOut, ulLen, stEnv.szValue);
    return EQU_OK;
}

uint32_t EQU_RtcSetTimeToFlash(const char *pcDate, const char *pcTime)
{
    if (set_env("rtcdate", pcDate) != EQU_OK) {
        printf("\r\nsave rtc date to flash error");
        return EQU_FAIL;
    }
    if (set_env("rtctime", pcTime) != EQU_OK) {
        printf("\r\nsave rtc time to flash error");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_RtcGetTimeFromFlash(char *pcDate, char *pcTime)
{
    if (get_env("rtcdate", pcDate, kSavedLen + 1) != EQU_OK) {
        printf("\r\nread rtc date from flash error");
        return EQU_FAIL;
    }
    if (get_env("rtctime", pcTime, kSavedLen + 1) != EQU_OK) {
        printf("\r\nread rtc time from flash error");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_RtcZoneTrans(char *pcZone, int iDirection)
{
    if (pcZone == nullptr) {
        return EQU_FAIL;
    }
    if (iDirection == kZoneSet && strncmp(pcZone, "GMT", 3) != 0) {
        return EQU_OK;
    }
    const ZonePair *pstTbl = iDirection == kZoneSet ? kZoneSetTbl : kZoneGetTbl;
    for (; pstTbl->pcFrom[0] != '\0'; pstTbl++) {
        if (strcmp(pcZone, pstTbl->pcFrom) == 0) {
            strcpy(pcZone, pstTbl->pcTo);  // every right-hand side fits the field
            return EQU_OK;
        }
    }
    return EQU_OK;
}

uint32_t EQU_RtcGetZoneCheck(char *pcCurrent, const char *pcFactory)
{
    for (const ZonePair *p = kZoneEquTbl; p->pcFrom[0] != '\0'; p++) {
        if (strcmp(pcCurrent, p->pcFrom) == 0 && strcmp(pcFactory, p->pcTo) == 0) {
            strcpy(pcCurrent, pcFactory);  // the right-hand sides fit the zone field
            break;
        }
    }
    return EQU_OK;
}

uint32_t EQU_GetRtcBatteryStatus(uint32_t *pu32Status)
{
    *pu32Status = 1;
    return EQU_OK;
}

// ---- validators ----

uint64_t EQU_CmdCheck_Time(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strlen(pcToken) != 8 || !all_digits(pcToken, 2) || pcToken[2] != ':' ||
        !all_digits(pcToken + 3, 2) || pcToken[5] != ':' || !all_digits(pcToken + 6, 2)) {
        return EQU_FAIL;
    }
    const char *pc = pcToken;
    uint64_t ulHour = next_field(&pc);
    uint64_t ulMin = next_field(&pc);
    uint64_t ulSec = next_field(&pc);
    return (ulHour <= 23 && ulMin <= 59 && ulSec <= 59) ? EQU_OK : EQU_FAIL;
}

uint64_t EQU_CmdCheck_Date(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strlen(pcToken) != 10 || !all_digits(pcToken, 4) || pcToken[4] != '-' ||
        !all_digits(pcToken + 5, 2) || pcToken[7] != '-' || !all_digits(pcToken + 8, 2)) {
        return EQU_FAIL;
    }
    const char *pc = pcToken;
    uint64_t ulYear = next_field(&pc);
    uint64_t ulMon = next_field(&pc);
    uint64_t ulDay = next_field(&pc);
    if (ulYear < 2000 || ulYear > 2037 || ulMon < 1 || ulMon > 12 || ulDay < 1 ||
        ulDay > gszDayOfMonth[ulMon - 1]) {
        return EQU_FAIL;
    }
    if (ulMon == 2 && ulDay > 28 && !is_leap(ulYear)) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_SetRtcTime(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPara[CLI_MAX_TOKEN_LEN] = {0};
    char acTime[kTypedLen + 1] = {0};
    char acDate[kTypedLen + 1] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPara);
    copy_cut(acTime, sizeof(acTime), acPara);
    CLI_GetOctStringPara(pstCmdPara, 1, acPara);
    copy_cut(acDate, sizeof(acDate), acPara);
    if (EQU_RtcSetTimeToChip(acDate, acTime) != EQU_OK ||
        EQU_RtcSetTimeToFlash(acDate, acTime) != EQU_OK) {
        return EQU_FAIL;
    }
    (void)system("hwclock -s");
    printf("\r\nRTC_Chip time set is %s %s", acTime, acDate);
    return EQU_OK;
}

// "HH:MM:SS YYYY-MM-DD", a digit at a time.
void format_chip_time(const struct rtc_time &stTm, char (&acOut)[20])
{
    const int aiTwo[] = {stTm.tm_hour, stTm.tm_min, stTm.tm_sec};
    for (int i = 0; i < 3; i++) {
        acOut[i * 3] = static_cast<char>('0' + aiTwo[i] / 10 % 10);
        acOut[i * 3 + 1] = static_cast<char>('0' + aiTwo[i] % 10);
        acOut[i * 3 + 2] = i < 2 ? ':' : ' ';
    }
    const int y = stTm.tm_year;
    const char acTail[] = {static_cast<char>('0' + y / 1000 % 10),
                           static_cast<char>('0' + y / 100 % 10),
                           static_cast<char>('0' + y / 10 % 10),
                           static_cast<char>('0' + y % 10),
                           '-',
                           static_cast<char>('0' + stTm.tm_mon / 10 % 10),
                           static_cast<char>('0' + stTm.tm_mon % 10),
                           '-',
                           static_cast<char>('0' + stTm.tm_mday / 10 % 10),
                           static_cast<char>('0' + stTm.tm_mday % 10)};
    memcpy(acOut + 9, acTail, sizeof(acTail));
    acOut[19] = '\0';
}

uint64_t EQU_CmdProc_GetRtcTime(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    struct rtc_time stTm {};
    char acDate[kSavedLen + 1] = {0};
    char acTime[kSavedLen + 1] = {0};
    if (EQU_RtcGetTimeFromChip(&stTm) != EQU_OK ||
        EQU_RtcGetTimeFromFlash(acDate, acTime) != EQU_OK) {
        return EQU_FAIL;
    }
    char acNow[20];
    format_chip_time(stTm, acNow);
    printf("\r\nRTC_Chip saved set time is %s %s", acTime, acDate);
    printf("\r\nRTC_Chip time get is %s ", acNow);
    return EQU_OK;
}

uint64_t EQU_CmdProc_RtcSetZone(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPara[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPara);
    ZoneReq stReq{};
    char acTyped[sizeof(stReq.szZone)] = {0};
    // The record's field holds 31 characters: a longer name is cut there.
    copy_cut(stReq.szZone, sizeof(stReq.szZone), acPara);
    copy_cut(acTyped, sizeof(acTyped), acPara);
    if (EQU_RtcZoneTrans(stReq.szZone, kZoneSet) != EQU_OK) {
        printf("\r\nset zoneinfo failed!");
        return EQU_FAIL;
    }
    if (DRV_PerpCtl(DRV_PERP_SET_TIMEZONE, &stReq) != 0) {
        printf("\r\nset time zone %s failed", stReq.szZone);
        return EQU_FAIL;
    }
    if (set_env("factory_timezone", acTyped) != EQU_OK) {
        printf("\r\nsave factory_timezone=%s to flash error", stReq.szZone);
        return EQU_FAIL;
    }
    printf("\r\nTimeZone setzone: %s", acTyped);
    return EQU_OK;
}

uint64_t EQU_CmdProc_RtcGetZone(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    ZoneReq stReq{};
    if (DRV_PerpCtl(DRV_PERP_GET_TIMEZONE, &stReq) != 0) {
        printf("\r\nget time zone failed");
        return EQU_FAIL;
    }
    stReq.szZone[sizeof(stReq.szZone) - 1] = '\0';
    static char acFactory[EQU_ENV_VALUE_LEN];
    if (get_env("factory_timezone", acFactory, sizeof(acFactory)) != EQU_OK) {
        printf("\r\nsave factory_timezone=%s to flash error", stReq.szZone);
        return EQU_FAIL;
    }
    if (EQU_RtcZoneTrans(stReq.szZone, 0) != EQU_OK) {
        printf("\r\nget zoneinfo failed!");
        return EQU_FAIL;
    }
    EQU_RtcGetZoneCheck(stReq.szZone, acFactory);
    printf("\r\nrtc current getzone: %s", stReq.szZone);
    printf("\r\nrtc factory getzone: %s", acFactory);
    return EQU_OK;
}

uint64_t EQU_CmdProc_RtcBattery(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint32_t u32Status = 0;
    if (EQU_GetRtcBatteryStatus(&u32Status) != EQU_OK || u32Status != 1) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Rtc(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "rtc", HELP_RTC);
    CLI_AddKey(pT, 3, "settime", HELP_RTC_SETTIME);
    CLI_AddKey(pT, 4, "gettime", HELP_RTC_GETTIME);
    CLI_AddKey(pT, 5, "setzone", HELP_RTC_SETZONE);
    CLI_AddKey(pT, 6, "getzone", HELP_RTC_GETZONE);
    CLI_AddKey(pT, 7, "battery", HELP_RTC_BATTERY);
    CLI_AddPara(pT, 8, CLI_STRING, EQU_CmdCheck_Time, HELP_RTC_TIME);
    CLI_AddPara(pT, 9, CLI_STRING, EQU_CmdCheck_Date, HELP_RTC_DAY);
    CLI_AddPara(pT, 10, CLI_STRING, nullptr, HELP_RTC_ZONE);
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $8 $9", EQU_CmdProc_SetRtcTime);  // test rtc settime T D
    CLI_InstallCmd(pT, 10, "$1 $2 $4", EQU_CmdProc_GetRtcTime);        // test rtc gettime
    CLI_InstallCmd(pT, 10, "$1 $2 $5 $10", EQU_CmdProc_RtcSetZone);    // test rtc setzone GMT+8
    CLI_InstallCmd(pT, 10, "$1 $2 $6", EQU_CmdProc_RtcGetZone);        // test rtc getzone
    CLI_InstallCmd(pT, 10, "$1 $2 $7", EQU_CmdProc_RtcBattery);        // test rtc battery
    CLI_FreeCmdTemplet(pT, 10);
}
