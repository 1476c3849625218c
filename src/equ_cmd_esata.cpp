// eSATA test: is a disk attached to the eSATA port, and a write/read test on
// its first sectors.
//
// Commands:
//   test esata sector [TIMES]   sectors 1..TIMES (1..255, default 1)
//   test esata status
// Pass: every sector read back the pattern; a disk is attached. Fail: no
// disk on the port, it did not open, or a sector read back something else.
//
// Values:
//   <times>  any number; the command takes 1~255 (default 1)
//
// Touches: "cat /proc/disk/global | grep -i esata > /tmp/esata_name" (the
// line's second ":" field is a blank and the device name, "NUL" for none;
// of two such lines the second counts); /dev/sdX opened read-write.
//
// Kept on purpose:
// - Unlike the hard-disk test the sectors are not restored: they keep the
//   0xA5 pattern afterwards.
// - /tmp/esata_name is left in place; the "absent" message of the name
//   lookup carries a GBK full-width colon.
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

constexpr size_t kSector = 512;
constexpr size_t kNameLen = 16;
constexpr uint32_t kMaxTimes = 255;
constexpr const char *kNameFile = "/tmp/esata_name";

uint32_t EQU_Esata_GetDiskName(char *pcName)
{
    if (pcName == nullptr) {
        printf("\r\npEsataName pointer is null");
        return EQU_FAIL;
    }
    if (system("cat /proc/disk/global | grep -i esata > /tmp/esata_name") < 0) {
        printf("\r\nget ssd_name error");
        return EQU_FAIL;
    }
    char acLine[32] = {0};
    // What the last successful read left: the second matching line, if any.
    if (FILE *fp = fopen(kNameFile, "r")) {
        if (fgets(acLine, 31, fp) != nullptr) {
            (void)fgets(acLine, 31, fp);
        }
        fclose(fp);
    }
    const char *pcField = strchr(acLine, ':');
    if (pcField == nullptr) {
        printf("\r\nesata status\xA3\xBA"
               "absent ");
        return EQU_FAIL;
    }
    // The field after the colon loses its one leading blank; the name ends
    // at the next field or the line's end, three characters at most.
    pcField++;
    pcField += *pcField != '\0' ? 1 : 0;
    size_t n = strcspn(pcField, ":\r\n");
    snprintf(pcName, kNameLen, "%.*s", static_cast<int>(n < 3 ? n : 3), pcField);
    return strcmp(pcName, "NUL") == 0 ? EQU_FAIL : EQU_OK;
}

uint32_t EQU_Esata_SectorRWTest(const char *pcPath, uint32_t u32Num)
{
    uint8_t aucPattern[kSector];
    memset(aucPattern, 0xA5, sizeof(aucPattern));
    EQU_Node disk(pcPath, {"\r\n\n ", " open fail!\n"});
    if (!disk) {
        return EQU_FAIL;
    }
    bool bOk = true;
    for (uint32_t s = 1; s <= u32Num && bOk; s++) {
        off_t lOff = static_cast<int32_t>(s * static_cast<uint32_t>(kSector));
        uint8_t aucBack[kSector] = {0};
        lseek(disk.fd(), lOff, SEEK_SET);
        bOk = write(disk.fd(), aucPattern, kSector) == static_cast<ssize_t>(kSector);
        if (bOk) {
            fsync(disk.fd());
            lseek(disk.fd(), lOff, SEEK_SET);
            bOk = read(disk.fd(), aucBack, kSector) == static_cast<ssize_t>(kSector) &&
                  memcmp(aucBack, aucPattern, kSector) == 0;
        }
    }
    printf(bOk ? "\r\nesata test..........ok" : "\r\nesata test..........error");
    return bOk ? EQU_OK : EQU_FAIL;
}

// ---- handlers ----

uint64_t EQU_CmdProc_Esata_SectorTest(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulNum = 0;
    int64_t lTimes = 1;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum == 1) {
        const char *acTimes = pstCmdPara->astPara[0].szPara;
        if (!CLI_IsdigitString(acTimes)) {
            printf("\r\nerror:invalid time value, please check");
            return EQU_FAIL;
        }
        if (!EQU_InRange(acTimes, 1, kMaxTimes, &lTimes)) {
            printf("\r\nerror:times must between 1 ~ 255");
            return EQU_FAIL;
        }
    }
    char acName[kNameLen] = {0};
    if (EQU_Esata_GetDiskName(acName) != EQU_OK) {
        printf("\r\nesata test..........error");
        return EQU_FAIL;
    }
    char acPath[kNameLen];
    snprintf(acPath, sizeof(acPath), "/dev/%.10s", acName);  // at most 15 characters
    return EQU_Esata_SectorRWTest(acPath, static_cast<uint32_t>(lTimes));
}

uint64_t EQU_CmdProc_Esata_GetStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    char acName[kNameLen] = {0};
    if (EQU_Esata_GetDiskName(acName) != EQU_OK) {
        printf("\r\nesata status : absent");
        return EQU_FAIL;
    }
    printf("\r\nesata status : present");
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Esata(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "esata", HELP_ESATA);
    CLI_AddKey(pT, 3, "sector", HELP_ESATA_SECTOR);
    CLI_AddKey(pT, 4, "type", HELP_ESATA_TYPE);
    CLI_AddKey(pT, 5, "status", HELP_ESATA_STATUS);
    CLI_AddPara(pT, 6, CLI_INTEGER, nullptr, HELP_ESATA_TIMES);
    CLI_InstallCmd(pT, 6, "$1 $2 $3", EQU_CmdProc_Esata_SectorTest);     // test esata sector
    CLI_InstallCmd(pT, 6, "$1 $2 $3 $6", EQU_CmdProc_Esata_SectorTest);  // test esata sector 255
    CLI_InstallCmd(pT, 6, "$1 $2 $5", EQU_CmdProc_Esata_GetStatus);      // test esata status
    CLI_FreeCmdTemplet(pT, 6);
}
