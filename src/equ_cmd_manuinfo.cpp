// Manufacturing information and boot logo transfer.
//
// Commands:
//   download manuinfo FILE        the test PC's FILE into nvram "ManuInfo"
//   display manuinfo              the whole text
//   display device manuinfo       the text up to the first '#', then "##"
//   download logo FILE            FILE, packed, onto the logo partition
//   upload logo FILE              FILE, unpacked from the partition, to the PC
//   check logo FILE               the MD5 sum of the picture on the partition
// Pass: the transfer, the nvram access and every shell step worked. Fail:
// any of them did not, the server address is unset, a file is missing.
//
// Needs: "set serverip" before every transfer (download, upload, check
// logo); "display manuinfo" and "display device manuinfo" fail on a fresh
// board until "download manuinfo" has stored the text; "download logo FILE"
// needs FILE on the test PC, and "check logo" and "upload logo" a logo
// downloaded first.
//
// Touches: nvram "ManuInfo" (at most 5120 bytes kept); /dev/mmcblk0p7, whose
// first 2 MiB hold the logo archive; TFTP to and from acEquServerip; the
// shell's tar, /bin/dd, md5sum, rm and sync; work files in /tmp.
//
// Two kinds of logo file, told apart by the name: "res.*" travels as
// res_compress.tar.gz; any other name X (a tar holding bootlogo.jpg) as X.tar.
//
// Kept on purpose:
// - download manuinfo prints "Please check the test result" on every path
//   after the transfer, success included: the factory scripts wait for it.
// - The workers' own codes (a failed chdir, shell or TFTP result, 202 for a
//   name without '.', 209 for the sum file) reach the logo handlers, which
//   turn them into 200.
// - A res archive that does not unpack is only reported: the transfer or
//   sum that follows shows whether anything usable came out.
// - The rm message after a res check names "res_*" while "res*" is removed.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr uint32_t kNameErr = 202;
constexpr uint32_t kSumErr = 209;
constexpr const char *kResArchive = "res_compress.tar.gz";

bool is_res(const char *pcName)
{
    return strncmp(pcName, "res.", 4) == 0;
}

// Runs a formatted shell command; on failure prints it (or pcShown) and
// gives the raw result.
__attribute__((format(printf, 2, 3))) int run_cmd(const char *pcShown, const char *pcFmt, ...)
{
    char acCmd[512];
    va_list ap;
    va_start(ap, pcFmt);
    vsnprintf(acCmd, sizeof(acCmd), pcFmt, ap);
    va_end(ap);
    int iRet = system(acCmd);
    if (iRet != 0) {
        printf("\r\n(%s) fail, lRet=%ld\n", pcShown != nullptr ? pcShown : acCmd,
               static_cast<long>(iRet));
    }
    return iRet;
}

// Copies the partition's first 2 MiB into a work file.
int read_partition(const char *pcOut)
{
    return run_cmd(nullptr, "/bin/dd if=/dev/mmcblk0p7 of=%s bs=1M count=2", pcOut);
}

// Copies the first parameter; false unless there is exactly one.
bool one_para(CLI_CMD_PARA_S *pstCmdPara, char (&acName)[CLI_MAX_TOKEN_LEN])
{
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum != 1) {
        return false;
    }
    CLI_GetOctStringPara(pstCmdPara, 0, acName);
    return true;
}

bool serverip_ok(void)
{
    if (strnlen(acEquServerip, sizeof(acEquServerip)) <= 6) {
        printf("\r\nthe serverip is wrong,please check the serverip");
        return false;
    }
    return true;
}

uint32_t get_manuinfo(EQU_ENV_S *pstEnv)
{
    memset(pstEnv, 0, sizeof(*pstEnv));
    snprintf(pstEnv->szName, sizeof(pstEnv->szName), "ManuInfo");
    return EQU_GetEnvFromFlash(pstEnv);
}

// Packs the fetched file and writes the archive over the cleared partition.
uint32_t write_logo_archive(const char *pcName)
{
    char acArchive[CLI_MAX_TOKEN_LEN + 8];
    int iRet = 0;
    if (is_res(pcName)) {
        snprintf(acArchive, sizeof(acArchive), "%s", kResArchive);
        iRet = run_cmd(pcName, "tar czf res_compress.tar.gz %s", pcName);
    } else {
        snprintf(acArchive, sizeof(acArchive), "%s.tar", pcName);
        iRet = run_cmd(pcName, "tar -cvf %s %s", acArchive, pcName);
    }
    if (iRet != 0) {
        return EQU_FAIL;
    }
    return static_cast<uint32_t>(run_cmd(nullptr,
                                         "/bin/dd if=/dev/zero of=/dev/mmcblk0p7 bs=1M count=2 "
                                         "2>/dev/null && /bin/dd if=%s of=/dev/mmcblk0p7 bs=1M "
                                         "count=2",
                                         acArchive));
}

uint32_t EQU_DownLoadLogo(const char *pcPath, const char *pcName, const char *pcServer)
{
    if (pcPath == nullptr || pcName == nullptr || pcServer == nullptr) {
        printf("\r\nNULL pointers!");
        return EQU_FAIL;
    }
    char acCwd[128] = {0};
    (void)getcwd(acCwd, sizeof(acCwd));
    if (int iRet = chdir("/tmp"); iRet != 0) {
        printf("\r\nChanging Current dir");
        return static_cast<uint32_t>(iRet);
    }
    if (uint32_t u32Ret = EQU_TftpTransferFile(pcPath, pcName, 0); u32Ret != EQU_OK) {
        printf("\r\n\rTFTP Failed");
        return u32Ret;
    }
    if (uint32_t u32Ret = write_logo_archive(pcName); u32Ret != EQU_OK) {
        return u32Ret;
    }
    int iRet = chdir(acCwd);
    if (iRet != 0) {
        printf("\r\ndir recovering fail");
    }
    return static_cast<uint32_t>(iRet);
}

// Unpacks the logo file from the partition into /tmp; 0 or the failure code.
uint32_t read_logo_file(const char *pcName)
{
    if (is_res(pcName)) {
        if (int iRet = read_partition(kResArchive); iRet != 0) {
            return static_cast<uint32_t>(iRet);
        }
        (void)run_cmd(nullptr, "tar xzf %s", kResArchive);
        return EQU_OK;
    }
    char acArchive[CLI_MAX_TOKEN_LEN + 8];
    snprintf(acArchive, sizeof(acArchive), "%s.tar", pcName);
    if (read_partition(acArchive) != 0 || run_cmd(pcName, "tar xvf %s", acArchive)) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_UpLoadLogo(const char *pcPath, const char *pcName, const char *pcServer)
{
    if (pcPath == nullptr || pcName == nullptr || pcServer == nullptr) {
        printf("\r\n\r\nNULL pointers error!");
        return EQU_FAIL;
    }
    char acCwd[40] = {0};
    (void)getcwd(acCwd, sizeof(acCwd));
    if (chdir("/tmp/") != 0) {
        printf("\r\nChanging Current dir to writable dir failed,please Change Current dir "
               "yourself");
    }
    if (uint32_t u32Ret = read_logo_file(pcName); u32Ret != EQU_OK) {
        return u32Ret;
    }
    if (uint32_t u32Ret = EQU_TftpTransferFile(pcPath, pcName, 1); u32Ret != EQU_OK) {
        printf("\r\n\rTFTP Failed");
        return u32Ret;
    }
    char acRm[CLI_MAX_TOKEN_LEN + 16];
    snprintf(acRm, sizeof(acRm), is_res(pcName) ? "rm -rf /tmp/res*" : "rm -rf /tmp/%s*", pcName);
    if (int iRet = system(acRm); iRet != 0) {
        printf("\r\n\rRmFile Failed");
        return static_cast<uint32_t>(iRet);
    }
    if (chdir(acCwd) != 0) {
        printf("\r\ndir recovering fail");
    }
    return EQU_OK;
}

uint32_t EQU_BootLogoAnalyse(const char *pcName, char *pcPicture)
{
    if (pcName == nullptr || pcPicture == nullptr) {
        return kNameErr;
    }
    const char *pcDot = static_cast<const char *>(memchr(pcName, '.', strnlen(pcName, 101)));
    if (pcDot == nullptr) {
        return kNameErr;
    }
    size_t ulStem = static_cast<size_t>(pcDot - pcName);
    memcpy(pcPicture, pcName, ulStem);
    strcpy(pcPicture + ulStem, ".jpg");
    return EQU_OK;
}

// Unpacks the picture and writes its sum into /tmp/md5.txt.
uint32_t sum_picture(const char *pcName)
{
    if (is_res(pcName)) {
        if (int iRet = read_partition(kResArchive); iRet != 0) {
            return static_cast<uint32_t>(iRet);
        }
        (void)run_cmd(nullptr, "tar xzf %s", kResArchive);
        char acCmd[CLI_MAX_TOKEN_LEN + 48];
        snprintf(acCmd, sizeof(acCmd), "md5sum %s/%s > /tmp/md5.txt", "/tmp", pcName);
        if (int iRet = system(acCmd); iRet != 0) {
            printf("\r\nmd5sum execute fail");
            return static_cast<uint32_t>(iRet);
        }
        return static_cast<uint32_t>(run_cmd("rm -rf /tmp/res_*", "%s", "rm -rf /tmp/res*"));
    }
    char acPicture[CLI_MAX_TOKEN_LEN + 8] = {0};
    if (uint32_t u32Ret = EQU_BootLogoAnalyse(pcName, acPicture); u32Ret != EQU_OK) {
        printf("\r\nAnalyse %s fail\n", pcName);
        return u32Ret;
    }
    char acArchive[CLI_MAX_TOKEN_LEN + 8];
    snprintf(acArchive, sizeof(acArchive), "%s.tar", pcName);
    if (read_partition(acArchive) != 0 || run_cmd(nullptr, "tar xvf %s", acArchive) ||
        run_cmd(nullptr, "tar -vxf %s", pcName)) {
        return EQU_FAIL;
    }
    char acCmd[CLI_MAX_TOKEN_LEN + 48];
    snprintf(acCmd, sizeof(acCmd), "md5sum %s/%s > /tmp/md5.txt", "/tmp", acPicture);
    if (int iRet = system(acCmd); iRet != 0) {
        printf("\r\nmd5sum execute fail");
        return static_cast<uint32_t>(iRet);
    }
    return static_cast<uint32_t>(run_cmd(nullptr, "%s", "rm -rf /tmp/bootlogo*"));
}

// Prints the sum from /tmp/md5.txt (the text before the first blank).
uint32_t print_sum(void)
{
    FILE *fp = fopen("/tmp/md5.txt", "r");
    if (fp == nullptr) {
        printf("\r\nopen md5.txt fail");
        return kSumErr;
    }
    char acLine[64] = {0};
    if (fgets(acLine, sizeof(acLine), fp) == nullptr) {
        fclose(fp);
        printf("\r\nget md5 info fail");
        return kSumErr;
    }
    fclose(fp);
    if (int iRet = run_cmd(nullptr, "%s", "rm -rf /tmp/md5.txt"); iRet != 0) {
        return static_cast<uint32_t>(iRet);
    }
    printf("\r\nmd5:%.*s\r\n", static_cast<int>(strcspn(acLine, " \n")), acLine);
    return EQU_OK;
}

uint32_t EQU_CheckLogoMd5(const char *pcName)
{
    if (pcName == nullptr) {
        printf("\r\nNULL pointers!");
        return EQU_FAIL;
    }
    char acCwd[128] = {0};
    (void)getcwd(acCwd, sizeof(acCwd));
    if (int iRet = chdir("/tmp"); iRet != 0) {
        printf("\r\nChanging Current dir fail");
        return static_cast<uint32_t>(iRet);
    }
    if (uint32_t u32Ret = sum_picture(pcName); u32Ret != EQU_OK) {
        return u32Ret;
    }
    if (uint32_t u32Ret = print_sum(); u32Ret != EQU_OK) {
        return u32Ret;
    }
    int iRet = chdir(acCwd);
    if (iRet != 0) {
        printf("\r\ndir recovering fail");
    }
    return static_cast<uint32_t>(iRet);
}

// ---- handlers ----

uint64_t EQU_CmdProc_DownloadManuinfo(CLI_CMD_PARA_S *pstCmdPara)
{
    char acName[CLI_MAX_TOKEN_LEN] = {0};
    char acPath[CLI_MAX_TOKEN_LEN + 8];
    CLI_GetOctStringPara(pstCmdPara, 0, acName);
    snprintf(acPath, sizeof(acPath), "/tmp/%s", acName);
    if (EQU_TftpTransferFile(acPath, acName, 0) != EQU_OK) {
        return EQU_FAIL;
    }
    printf("\r\nPlease check the test result");
    FILE *fp = fopen(acPath, "r");
    if (fp == nullptr) {
        printf("\r\nopen %s error!", acPath);
        return EQU_FAIL;
    }
    static EQU_ENV_S stEnv;  // 5 KiB: kept off the stack
    memset(&stEnv, 0, sizeof(stEnv));
    // The whole field: the driver keeps it by size, not by terminator.
    size_t ulGot = fread(stEnv.szValue, 1, sizeof(stEnv.szValue), fp);
    (void)ulGot;
    fclose(fp);
    snprintf(stEnv.szName, sizeof(stEnv.szName), "ManuInfo");
    if (EQU_SetEnvToFlash(&stEnv) != EQU_OK) {
        return EQU_FAIL;
    }
    (void)system("sync");
    return EQU_OK;
}

uint64_t EQU_CmdProc_DisplayManuinfo(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    static EQU_ENV_S stEnv;
    if (get_manuinfo(&stEnv) != EQU_OK) {
        return EQU_FAIL;
    }
    printf("\r\n%s", stEnv.szValue);
    return EQU_OK;
}

uint64_t EQU_CmdProc_DisplayDevManuinfo(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    static EQU_ENV_S stEnv;
    if (get_manuinfo(&stEnv) != EQU_OK) {
        return EQU_FAIL;
    }
    char *pcSave = nullptr;
    const char *pcDev = strtok_r(stEnv.szValue, "##", &pcSave);
    printf("\r\n%s", pcDev != nullptr ? pcDev : "");
    printf("##");
    return EQU_OK;
}

uint64_t EQU_CmdProc_DownLoadLogo(CLI_CMD_PARA_S *pstCmdPara)
{
    char acName[CLI_MAX_TOKEN_LEN] = {0};
    if (!one_para(pstCmdPara, acName)) {
        printf("\r\nDownLoadLogo has no argument");
        return EQU_FAIL;
    }
    if (!serverip_ok()) {
        return EQU_FAIL;
    }
    char acPath[CLI_MAX_TOKEN_LEN + 8];
    snprintf(acPath, sizeof(acPath), "/tmp/%s", acName);
    if (EQU_DownLoadLogo(acPath, acName, acEquServerip) != EQU_OK) {
        printf("\r\nPlease check the test result");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdProc_UploadLogo(CLI_CMD_PARA_S *pstCmdPara)
{
    char acName[CLI_MAX_TOKEN_LEN] = {0};
    if (!one_para(pstCmdPara, acName)) {
        printf("\r\nEQU_CmdProc_UploadLogo has no argument");
        return EQU_FAIL;
    }
    if (!serverip_ok()) {
        return EQU_FAIL;
    }
    char acPath[CLI_MAX_TOKEN_LEN + 8];
    snprintf(acPath, sizeof(acPath), "/tmp/%s", acName);
    return EQU_UpLoadLogo(acPath, acName, acEquServerip) != EQU_OK ? EQU_FAIL : EQU_OK;
}

uint64_t EQU_CmdProc_CheckLogo(CLI_CMD_PARA_S *pstCmdPara)
{
    char acName[CLI_MAX_TOKEN_LEN] = {0};
    if (!one_para(pstCmdPara, acName)) {
        printf("\r\nCheckLogo need one argument");
        return EQU_FAIL;
    }
    if (EQU_CheckLogoMd5(acName) != EQU_OK) {
        printf("\r\nPlease check the test result");
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_ManuInfo(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "download", HELP_COMM_DOWNLOAD);
    CLI_AddKey(pT, 2, "upload", HELP_COMM_UPLOAD);
    CLI_AddKey(pT, 3, "display", HELP_COMM_DISPLAY);
    CLI_AddKey(pT, 4, "check", HELP_COMM_CHECK);
    CLI_AddKey(pT, 5, "manuinfo", HELP_MANUINFO);
    CLI_AddKey(pT, 6, "logo", HELP_OEM_LOGO);
    CLI_AddPara(pT, 7, CLI_STRING, nullptr, HELP_COMM_FILENAME);
    CLI_AddKey(pT, 8, "update", HELP_MANUINFO_UPDATE);
    CLI_AddPara(pT, 9, CLI_STRING, nullptr, HELP_MANUINFO_ID);
    CLI_AddPara(pT, 10, CLI_STRING, nullptr, HELP_MANUINFO_CONTENT);
    CLI_AddKey(pT, 11, "device", HELP_MANUINFO_DEVICE);
    CLI_InstallCmd(pT, 11, "$1 $5 $7", EQU_CmdProc_DownloadManuinfo);     // download manuinfo F
    CLI_InstallCmd(pT, 11, "$3 $5", EQU_CmdProc_DisplayManuinfo);         // display manuinfo
    CLI_InstallCmd(pT, 11, "$3 $11 $5", EQU_CmdProc_DisplayDevManuinfo);  // display device manuinfo
    CLI_InstallCmd(pT, 11, "$1 $6 $7", EQU_CmdProc_DownLoadLogo);         // download logo F
    CLI_InstallCmd(pT, 11, "$2 $6 $7", EQU_CmdProc_UploadLogo);           // upload logo F
    CLI_InstallCmd(pT, 11, "$4 $6 $7", EQU_CmdProc_CheckLogo);            // check logo F
    CLI_FreeCmdTemplet(pT, 11);
}
