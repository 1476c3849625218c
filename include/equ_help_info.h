// Keyword help tables: one table per test unit; command elements point at a
// table and a row, and the help printer shows the row's text in the language
// of the line. Chinese texts are GBK bytes.
#pragma once

struct EQU_KEY_HELP_INFO_S {
    const char *pcKey;     // keyword or parameter name as shown in help lists
    const char *pcHelpEn;  // English help
    const char *pcHelpCh;  // Chinese help, GBK
};

extern const EQU_KEY_HELP_INFO_S szEquHelpComm[28];
extern const EQU_KEY_HELP_INFO_S szEquHelpFlash[6];
extern const EQU_KEY_HELP_INFO_S szEquHelpIP[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpVersion[2];
extern const EQU_KEY_HELP_INFO_S szEquHelpTemperature[11];
extern const EQU_KEY_HELP_INFO_S szEquHelpButton[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpNet[27];
extern const EQU_KEY_HELP_INFO_S szEquHelpSubcard[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpFan[6];
extern const EQU_KEY_HELP_INFO_S szEquHelpPcie[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpDigital[1];
extern const EQU_KEY_HELP_INFO_S szEquHelpBIOS[2];
extern const EQU_KEY_HELP_INFO_S szEquHelpSoftware[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpBoot[1];
extern const EQU_KEY_HELP_INFO_S szEquHelpFirmware[9];
extern const EQU_KEY_HELP_INFO_S szEquHelpRuntime[8];
extern const EQU_KEY_HELP_INFO_S szEquHelpClear[5];
extern const EQU_KEY_HELP_INFO_S szEquHelpManuinfo[5];
extern const EQU_KEY_HELP_INFO_S szEquHelpRam[5];
extern const EQU_KEY_HELP_INFO_S szEquHelpAlarm[5];
extern const EQU_KEY_HELP_INFO_S szEquHelpUsb[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpAudio[7];
extern const EQU_KEY_HELP_INFO_S szEquHelpEdid[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpBuzzer[2];
extern const EQU_KEY_HELP_INFO_S szEquHelpInfrared[1];
extern const EQU_KEY_HELP_INFO_S szEquHelpCpuInfo[1];
extern const EQU_KEY_HELP_INFO_S szEquHelpOptic[6];
extern const EQU_KEY_HELP_INFO_S szEquHelpPower[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpOem[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpGps[8];
extern const EQU_KEY_HELP_INFO_S szEquHelpLed[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpRtc[9];
extern const EQU_KEY_HELP_INFO_S szEquHelpHasa[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpSerial[13];
extern const EQU_KEY_HELP_INFO_S szEquHelpWatchdog[1];
extern const EQU_KEY_HELP_INFO_S szEquHelpChip[2];
extern const EQU_KEY_HELP_INFO_S szEquHelpVideo[7];
extern const EQU_KEY_HELP_INFO_S szEquHelpSDI[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpMcu[3];
extern const EQU_KEY_HELP_INFO_S szEquHelpHarddisk[9];
extern const EQU_KEY_HELP_INFO_S szEquHelpEsata[5];
extern const EQU_KEY_HELP_INFO_S szEquHelpCpld[4];
extern const EQU_KEY_HELP_INFO_S szEquHelpSsd[2];
extern const EQU_KEY_HELP_INFO_S szEquHelpx4tox2[3];
