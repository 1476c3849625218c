// USB test: are sticks in both ports, and an access test that mounts each
// stick's FAT file system, writes a test file, reads it back and compares.
//
// Commands (PORT, 0..ucUsbNum-1 or "all", is checked but not used):
//   test usb access PORT
//   test usb status PORT
// Pass: both ports hold a stick (the verdict lines always name ports 0 and 1)
// and, for access, every port's stick mounted and its test file read back.
// Fail: a port is empty, the request failed, or a stick did not mount or
// read back its file.
//
// Needs: a stick in each port; for access, each with a FAT file system.
//
// Values:
//   <port num>  0~1 or all (the board's USB ports; checked, not used)
//
// Touches: /dev/harddisk 0x40504 (128-byte record per port: device name at
// 0, -1 at 20 for no stick, a field at 36 that differs between the ports);
// through the module's own shell runner: "mkdir -p", "umount -f", "mount -t
// vfat /dev/<name><n> /var/usb_disk_<name>[<n>]" for n = -1..31, then
// "rm -rf" and "umount" of the test file and mount point.
//
// Kept on purpose:
// - The whole-device path is never tried: the first candidate is the name
//   followed by -1 (a stick without a partition table does not mount).
// - The path, mount point and command buffers are the module's own, so the
//   module is not re-entrant; failed candidates leave their directories
//   until all 33 failed.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kUsbInfoReq = 0x40504;
constexpr size_t kInfoLen = 1024;
constexpr size_t kRecLen = 128;
constexpr size_t kNameOff = 0;
constexpr size_t kNameMax = 20;  // the name ends where the presence field starts
constexpr size_t kPresentOff = 20;
constexpr size_t kIdOff = 36;
constexpr size_t kFileLen = 512;

char g_acMountPath[64];
char g_acDevPath[128];
char g_acShellCmd[512];

uint32_t EQU_USB_System(const char *pcCmd)
{
    if (pcCmd == nullptr) {
        return 1;
    }
    pid_t pid = fork();
    if (pid < 0) {
        return static_cast<uint32_t>(-1);
    }
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", pcCmd, static_cast<char *>(nullptr));
        _exit(127);
    }
    int iStatus = 0;
    while (waitpid(pid, &iStatus, 0) < 0) {
        if (errno != EINTR) {
            return static_cast<uint32_t>(-1);
        }
    }
    return static_cast<uint32_t>(iStatus);
}

__attribute__((format(printf, 1, 2))) uint32_t usb_shell(const char *pcFmt, ...)
{
    va_list ap;
    va_start(ap, pcFmt);
    vsnprintf(g_acShellCmd, sizeof(g_acShellCmd), pcFmt, ap);
    va_end(ap);
    return EQU_USB_System(g_acShellCmd);
}

// The port table; false (with the message printed) when it cannot be read.
bool usb_table(uint8_t *pucInfo)
{
    EQU_Node node(EQU_DEV_HARDDISK, EQU_MSG_OPEN_FILE);
    if (!node) {
        return false;
    }
    memset(pucInfo, 0, kInfoLen);
    if (node.request(kUsbInfoReq, pucInfo) < 0) {
        printf("\r\nFailed to get usb info");
        return false;
    }
    return true;
}

int32_t field32(const uint8_t *pucInfo, size_t ulPort, size_t ulOff)
{
    int32_t iVal = 0;
    memcpy(&iVal, pucInfo + ulPort * kRecLen + ulOff, sizeof(iVal));
    return iVal;
}

uint32_t EQU_USB_GetStatus(void)
{
    uint8_t aucInfo[kInfoLen];
    if (!usb_table(aucInfo)) {
        return EQU_FAIL;
    }
    bool bBoth = field32(aucInfo, 0, kPresentOff) != -1 && field32(aucInfo, 1, kPresentOff) != -1 &&
                 field32(aucInfo, 0, kIdOff) != field32(aucInfo, 1, kIdOff);
    return bBoth ? EQU_OK : EQU_FAIL;
}

uint32_t EQU_USB_Mount(const char *pcName, char *pcMountPoint)
{
    for (int n = -1; n <= 31; n++) {
        snprintf(g_acDevPath, sizeof(g_acDevPath), "/dev/%s%d", pcName, n);
        if (n == -1) {
            snprintf(g_acMountPath, sizeof(g_acMountPath), "/var/usb_disk_%s", pcName);
        } else {
            snprintf(g_acMountPath, sizeof(g_acMountPath), "/var/usb_disk_%s%d", pcName, n);
        }
        if (usb_shell("mkdir -p %s", g_acMountPath) != 0) {
            continue;
        }
        usb_shell("umount -f %s 1>/dev/null 2>&1", g_acMountPath);
        if (usb_shell("mount -t vfat %s %s 1>/dev/null 2>&1", g_acDevPath, g_acMountPath) == 0) {
            snprintf(pcMountPoint, sizeof(g_acMountPath), "%s", g_acMountPath);
            return EQU_OK;
        }
    }
    usb_shell("rm -rf /var/usb_disk_*");
    return EQU_FAIL;
}

// Pattern written, read back from the start and compared.
uint32_t rw_check(int fd)
{
    uint8_t aucData[kFileLen];
    memset(aucData, 0xA5, sizeof(aucData));
    ssize_t n = write(fd, aucData, kFileLen);
    if (n != static_cast<ssize_t>(kFileLen)) {
        printf("\r\nwrite usb failed, real write len : %lu", static_cast<unsigned long>(n));
        return EQU_FAIL;
    }
    fsync(fd);
    lseek(fd, 0, SEEK_SET);
    uint8_t aucBack[kFileLen] = {0};
    n = read(fd, aucBack, kFileLen);
    if (n != static_cast<ssize_t>(kFileLen)) {
        printf("\r\nread usb failed, real read len : %lu", static_cast<unsigned long>(n));
        return EQU_FAIL;
    }
    return memcmp(aucBack, aucData, kFileLen) == 0 ? EQU_OK : EQU_FAIL;
}

uint32_t EQU_USB_TestAccessByMount(const char *pcMountPoint)
{
    char acPath[sizeof(g_acMountPath) + 16];
    snprintf(acPath, sizeof(acPath), "%s/test.txt", pcMountPoint);
    uint32_t u32Ret = EQU_FAIL;
    // The module sets no permission bits of its own: the umask decides.
    int fd = open(acPath, O_RDWR | O_CREAT, 0666);
    if (fd < 0) {
        printf("\r\nOpen %s failed, err: %s", acPath, strerror(errno));
    } else {
        u32Ret = rw_check(fd);
        close(fd);
    }
    usb_shell("rm -rf %s", acPath);
    usb_shell("umount %s", pcMountPoint);
    usb_shell("rm -rf %s", pcMountPoint);
    return u32Ret;
}

// Reached by no command: overwrites the stick's first sector for good.
[[maybe_unused]] uint32_t EQU_USB_TestAccessDirect(const char *pcName)
{
    snprintf(g_acDevPath, sizeof(g_acDevPath), "/dev/%s", pcName);
    int fd = open(g_acDevPath, O_RDWR);
    if (fd < 0) {
        printf("\r\nOpen /dev/%s failed", g_acDevPath);
        return EQU_FAIL;
    }
    uint32_t u32Ret = rw_check(fd);
    close(fd);
    return u32Ret;
}

uint32_t EQU_USB_TestAccess(void)
{
    uint8_t aucInfo[kInfoLen];
    if (!usb_table(aucInfo)) {
        return EQU_FAIL;
    }
    if (EQU_USB_GetStatus() != EQU_OK) {
        printf("\r\nPort : USB not all present.");
        return EQU_FAIL;
    }
    uint32_t u32Sum = 0;
    size_t ulPorts = std::min<size_t>(gpstEquBoardDesc->ucUsbNum, kInfoLen / kRecLen);
    for (size_t p = 0; p < ulPorts; p++) {
        char acName[kNameMax + 1] = {0};
        memcpy(acName, aucInfo + p * kRecLen + kNameOff, kNameMax);
        char acMount[sizeof(g_acMountPath)] = {0};
        if (EQU_USB_Mount(acName, acMount) != EQU_OK) {
            printf("\r\nerror : mount %s %s failed", acName, g_acMountPath);
            return EQU_FAIL;
        }
        u32Sum += EQU_USB_TestAccessByMount(acMount);
    }
    return u32Sum;
}

// ---- validators ----

uint64_t EQU_CmdCheck_UsbNum(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int32_t iLast = static_cast<int32_t>(gpstEquBoardDesc->ucUsbNum) - 1;
    if (strcmp(pcToken, "all") != 0 && !EQU_InRange(pcToken, 0, iLast)) {
        printf("\r\nUsb port number must be 0-%d or all", iLast);
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_Usb(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    sleep(2);
    if (EQU_USB_TestAccess() != 0) {
        printf("\r\nport 0 test ............ error\nport 1 test ............ error");
        return 1;
    }
    printf("\r\nport 0 test ............ ok\nport 1 test ............ ok");
    return 0;
}

uint64_t EQU_CmdProc_GetUsbStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (EQU_USB_GetStatus() != EQU_OK) {
        printf("\r\nport 0 test ............ absent\nport 1 test ............ absent");
        return 1;
    }
    printf("\r\nport 0 test ............ present\nport 1 test ............ present");
    return 0;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Usb(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "usb", HELP_USB);
    CLI_AddKey(pT, 3, "access", HELP_USB_ACCESS);
    CLI_AddKey(pT, 4, "status", HELP_USB_STATUS);
    CLI_AddPara(pT, 5, CLI_STRING, EQU_CmdCheck_UsbNum, HELP_COMM_PORT_NUM);
    CLI_InstallCmd(pT, 5, "$1 $2 $3 $5", EQU_CmdProc_Usb);           // test usb access all
    CLI_InstallCmd(pT, 5, "$1 $2 $4 $5", EQU_CmdProc_GetUsbStatus);  // test usb status 0
    CLI_FreeCmdTemplet(pT, 5);
}
