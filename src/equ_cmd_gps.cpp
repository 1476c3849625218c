// GPS receiver test.
//
// Commands:
//   test nvrgps set rate [baud]        any digits, handed to the driver library
//   test nvrgps get satellite [port]   port must read as 0
//   test nvrgps get gpstime
// Pass: the driver took the rate; the GSV sentences of one read name at least
// one satellite in view (up to 5 reads); a ZDA sentence carried a complete
// date and time (up to 20 reads). The time is the receiver's UTC. Fail: the
// driver refused the rate, or the reads ran out first.
//
// Values:
//   <band rate value>  digits, for the driver library (9600 or 115200)
//   <portnum>          0 (any other number, a negative one too, is refused)
//
// Touches: DRV_GPS_SetBaudRate; /dev/ttyS9, opened O_RDWR (blocking), input
// flushed with ioctl 0x540B (TCFLSH, argument 0) before each read of up to
// 1,024 bytes.
//
// Kept on purpose:
// - The tool never sets ttyS9's terminal attributes: the driver library
//   owns the receiver's line.
// - The read has no time-out: a silent receiver holds the command, as on
//   the board; the harness ends the tool from outside.
// - A failed flush returns without closing the port.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr const char *kGpsDev = EQU_DEV_GPS;
constexpr unsigned long kFlushReq = 0x540B;
constexpr size_t kReadLen = 1024;
constexpr int kSatTries = 5;
constexpr int kTimeTries = 20;

// One read of the stream after discarding what was queued: the byte count,
// or 0 after a failure (printed; the port is closed unless the flush failed).
ssize_t gps_read(int fd, char *pcBuf, useconds_t usWait)
{
    if (ioctl(fd, kFlushReq, 0) != 0) {
        printf("\r\nioctl TCFLSH 0 failed");
        return 0;
    }
    usleep(usWait);
    memset(pcBuf, 0, kReadLen + 1);
    ssize_t n = read(fd, pcBuf, kReadLen);
    if (n <= 0) {
        printf("\r\nRead GPS msg fail. fd(%ld) error: %s.", static_cast<long>(fd), strerror(errno));
        close(fd);
        return 0;
    }
    return n;
}

int gps_open(void)
{
    int fd = open(kGpsDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nOpen gps (%s) failed", kGpsDev);
        return -1;
    }
    sleep(1);
    return fd;
}

// Position of the first pcWhat in the bytes read, or -1.
long find(const char *pcBuf, ssize_t n, const char *pcWhat)
{
    const void *p = memmem(pcBuf, static_cast<size_t>(n), pcWhat, strlen(pcWhat));
    return p ? static_cast<const char *>(p) - pcBuf : -1;
}

bool all_digits(const char *pcText)
{
    return pcText[0] != '\0' && CLI_IsOnlydigitString(pcText);
}

// Satellites in view from the first GSV sentence of each constellation.
uint32_t gsv_total(const char *pcBuf, ssize_t n)
{
    static constexpr const char *kTalkers[] = {"BDGSV", "GPGSV", "GLGSV", "GNGSV"};
    uint32_t u32Total = 0;
    for (const char *pcTalker : kTalkers) {
        long pos = find(pcBuf, n, pcTalker);
        if (pos < 0 || pos >= 1017) {
            continue;
        }
        char acField[4] = {0};
        if (sscanf(pcBuf + pos + 5, ",%*[^,],%*[^,],%3[^,],", acField) == 1 &&
            strlen(acField) <= 2 && all_digits(acField)) {
            u32Total += static_cast<uint32_t>(atoi(acField));
        }
    }
    return u32Total;
}

// Fills pcOut with "Gpstime:..." from a complete ZDA sentence.
bool zda_time(const char *pcBuf, ssize_t n, char *pcOut, size_t ulOut)
{
    long pos = find(pcBuf, n, "ZDA");
    if (pos < 0 || pos >= 991) {
        return false;
    }
    char h[3] = {0}, m[3] = {0}, s[3] = {0}, d[3] = {0}, mo[3] = {0}, y[5] = {0};
    sscanf(pcBuf + pos, "ZDA,%2[^,]%2[^,]%2[^,]%*[^,],%2[^,],%2[^,],%4[^,]", h, m, s, d, mo, y);
    const char *apcPieces[] = {h, m, s, d, mo, y};
    size_t ulLen = 0;
    bool bDigits = true;
    for (const char *pc : apcPieces) {
        ulLen += strlen(pc);
        bDigits = bDigits && all_digits(pc);
    }
    if (ulLen != 14 || !bDigits) {
        printf("\r\nEnvalid ZDA msg!");
        return false;
    }
    snprintf(pcOut, ulOut, "Gpstime:%s:%s:%s %s-%s-%s", h, m, s, y, mo, d);
    return true;
}

// ---- validators ----

uint64_t EQU_CmdCheck_GpsBaudRate(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!CLI_IsOnlydigitString(pcToken)) {
        printf("\r\nEnvalid BaudRate\n");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_GpsPortNum(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    // The C library's reading: "-1" is refused, not taken for 0.
    if (strtol(pcToken, nullptr, 10) != 0) {
        printf("\r\nthe satellite port only support 0\n");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_SetGPStRate(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulBaud = 0;
    CLI_GetUlongValuePara(pstCmdPara, 0, &ulBaud);
    int iRet = DRV_GPS_SetBaudRate(static_cast<uint32_t>(ulBaud));
    if (iRet != 0) {
        printf("\r\nSetup gps port rate %d failed", static_cast<int>(ulBaud));
        return static_cast<uint64_t>(static_cast<int64_t>(iRet));
    }
    return EQU_OK;
}

uint64_t EQU_GetSatelliteNum(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int fd = gps_open();
    if (fd < 0) {
        return EQU_FAIL;
    }
    char acBuf[kReadLen + 1];
    uint32_t u32Total = 0;
    for (int i = 0; i < kSatTries && u32Total == 0; i++) {
        ssize_t n = gps_read(fd, acBuf, 1000000);
        if (n == 0) {
            return EQU_FAIL;
        }
        u32Total = gsv_total(acBuf, n);
        if (u32Total == 0) {
            printf("\r\nEnvalid GSV msg!");
        }
    }
    close(fd);
    if (u32Total == 0) {
        printf("\r\nget Satellite Num failed!\n");
        return EQU_FAIL;
    }
    printf("\r\nSatellite Num: %u\n", u32Total);
    return EQU_OK;
}

uint64_t EQU_GetGPSTime(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int fd = gps_open();
    if (fd < 0) {
        return EQU_FAIL;
    }
    char acBuf[kReadLen + 1];
    char acTime[64];
    for (int i = 0; i < kTimeTries; i++) {
        ssize_t n = gps_read(fd, acBuf, 250000);
        if (n == 0) {
            return EQU_FAIL;
        }
        if (zda_time(acBuf, n, acTime, sizeof acTime)) {
            printf("\r\n%s", acTime);
            close(fd);
            return EQU_OK;
        }
        printf("\r\nTry to get gps time again");
    }
    close(fd);
    printf("\r\nGet gps time failed");
    return EQU_FAIL;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_GPS(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "nvrgps", HELP_GPS);
    CLI_AddKey(pT, 3, "set", HELP_GPS_SET);
    CLI_AddKey(pT, 4, "get", HELP_GPS_GET);
    CLI_AddKey(pT, 5, "rate", HELP_GPS_RATE);
    CLI_AddKey(pT, 6, "satellite", HELP_GPS_SATELLITE);
    CLI_AddKey(pT, 7, "gpstime", HELP_GPS_GPSTIME);
    CLI_AddPara(pT, 8, CLI_INTEGER, EQU_CmdCheck_GpsBaudRate, HELP_GPS_BAUD);
    CLI_AddPara(pT, 9, CLI_INTEGER, EQU_CmdCheck_GpsPortNum, HELP_GPS_PORTNUM);
    CLI_InstallCmd(pT, 9, "$1 $2 $3 $5 $8", EQU_SetGPStRate);      // test nvrgps set rate 9600
    CLI_InstallCmd(pT, 9, "$1 $2 $4 $6 $9", EQU_GetSatelliteNum);  // test nvrgps get satellite 0
    CLI_InstallCmd(pT, 9, "$1 $2 $4 $7", EQU_GetGPSTime);          // test nvrgps get gpstime
    CLI_FreeCmdTemplet(pT, 9);
}
