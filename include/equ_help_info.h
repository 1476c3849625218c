// Keyword help tables: one table per test unit; command elements point at a
// table and a row, and the help printer shows the row's text in the language
// of the line. Chinese texts are GBK bytes.
#pragma once
#include <cstdint>

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

// A help row by name, for registration functions: {table, row}.
struct EQU_HELP_ROW_S {
    const EQU_KEY_HELP_INFO_S *pstTbl;
    uint64_t ulRow;
};

// Rows of the common table (row 5 is reserved).
inline constexpr EQU_HELP_ROW_S HELP_COMM_TEST{szEquHelpComm, 0};
inline constexpr EQU_HELP_ROW_S HELP_COMM_DISPLAY{szEquHelpComm, 1};
inline constexpr EQU_HELP_ROW_S HELP_COMM_SET{szEquHelpComm, 2};
inline constexpr EQU_HELP_ROW_S HELP_COMM_GET{szEquHelpComm, 3};
inline constexpr EQU_HELP_ROW_S HELP_COMM_BOARD_TYPE{szEquHelpComm, 4};
inline constexpr EQU_HELP_ROW_S HELP_COMM_DELETE{szEquHelpComm, 6};
inline constexpr EQU_HELP_ROW_S HELP_COMM_FILENAME{szEquHelpComm, 7};
inline constexpr EQU_HELP_ROW_S HELP_COMM_AUTOTEST{szEquHelpComm, 8};
inline constexpr EQU_HELP_ROW_S HELP_COMM_PORT_NUM{szEquHelpComm, 9};
inline constexpr EQU_HELP_ROW_S HELP_COMM_TX_PORT_NUM{szEquHelpComm, 10};
inline constexpr EQU_HELP_ROW_S HELP_COMM_RX_PORT_NUM{szEquHelpComm, 11};
inline constexpr EQU_HELP_ROW_S HELP_COMM_INPUT_PORT_NUM{szEquHelpComm, 12};
inline constexpr EQU_HELP_ROW_S HELP_COMM_OUTPUT_PORT_NUM{szEquHelpComm, 13};
inline constexpr EQU_HELP_ROW_S HELP_COMM_SLOT{szEquHelpComm, 14};
inline constexpr EQU_HELP_ROW_S HELP_COMM_DIRECTION{szEquHelpComm, 15};
inline constexpr EQU_HELP_ROW_S HELP_COMM_OPEN{szEquHelpComm, 16};
inline constexpr EQU_HELP_ROW_S HELP_COMM_CLOSE{szEquHelpComm, 17};
inline constexpr EQU_HELP_ROW_S HELP_COMM_OPEN_CLOSE{szEquHelpComm, 18};
inline constexpr EQU_HELP_ROW_S HELP_COMM_ENABLE{szEquHelpComm, 19};
inline constexpr EQU_HELP_ROW_S HELP_COMM_DISABLE{szEquHelpComm, 20};
inline constexpr EQU_HELP_ROW_S HELP_COMM_ENABLE_DISABLE{szEquHelpComm, 21};
inline constexpr EQU_HELP_ROW_S HELP_COMM_ON_OFF{szEquHelpComm, 22};
inline constexpr EQU_HELP_ROW_S HELP_COMM_DOWNLOAD{szEquHelpComm, 23};
inline constexpr EQU_HELP_ROW_S HELP_COMM_UPLOAD{szEquHelpComm, 24};
inline constexpr EQU_HELP_ROW_S HELP_COMM_INFO{szEquHelpComm, 25};
inline constexpr EQU_HELP_ROW_S HELP_COMM_CHECK{szEquHelpComm, 26};
inline constexpr EQU_HELP_ROW_S HELP_COMM_HDMI{szEquHelpComm, 27};

// Rows of the module tables, named after the module and the keyword.
inline constexpr EQU_HELP_ROW_S HELP_BUTTON{szEquHelpButton, 0};
inline constexpr EQU_HELP_ROW_S HELP_BUTTON_RESET{szEquHelpButton, 1};
inline constexpr EQU_HELP_ROW_S HELP_BUTTON_POWERKEY{szEquHelpButton, 2};
inline constexpr EQU_HELP_ROW_S HELP_BUTTON_TIME{szEquHelpButton, 3};
inline constexpr EQU_HELP_ROW_S HELP_LED{szEquHelpLed, 0};
inline constexpr EQU_HELP_ROW_S HELP_LED_OFF{szEquHelpLed, 1};
inline constexpr EQU_HELP_ROW_S HELP_LED_ON{szEquHelpLed, 2};
inline constexpr EQU_HELP_ROW_S HELP_WATCHDOG{szEquHelpWatchdog, 0};

// Serial ports and GPS receiver.
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_RS{szEquHelpSerial, 0};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_232{szEquHelpSerial, 1};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_422{szEquHelpSerial, 2};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_485{szEquHelpSerial, 3};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_LOOPBACK{szEquHelpSerial, 4};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_PKT_LEN{szEquHelpSerial, 5};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_PKT_NUM{szEquHelpSerial, 6};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_PKT_TYPE{szEquHelpSerial, 7};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_MASTER{szEquHelpSerial, 8};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_SLAVE{szEquHelpSerial, 9};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_RATE{szEquHelpSerial, 10};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_BAUD{szEquHelpSerial, 11};
inline constexpr EQU_HELP_ROW_S HELP_SERIAL_TX_PORT{szEquHelpSerial, 12};
inline constexpr EQU_HELP_ROW_S HELP_GPS{szEquHelpGps, 0};
inline constexpr EQU_HELP_ROW_S HELP_GPS_SET{szEquHelpGps, 1};
inline constexpr EQU_HELP_ROW_S HELP_GPS_GET{szEquHelpGps, 2};
inline constexpr EQU_HELP_ROW_S HELP_GPS_RATE{szEquHelpGps, 3};
inline constexpr EQU_HELP_ROW_S HELP_GPS_BAUD{szEquHelpGps, 4};
inline constexpr EQU_HELP_ROW_S HELP_GPS_SATELLITE{szEquHelpGps, 5};
inline constexpr EQU_HELP_ROW_S HELP_GPS_GPSTIME{szEquHelpGps, 6};
inline constexpr EQU_HELP_ROW_S HELP_GPS_PORTNUM{szEquHelpGps, 7};

// Clock, manufacturing data and version report.
inline constexpr EQU_HELP_ROW_S HELP_RTC{szEquHelpRtc, 0};
inline constexpr EQU_HELP_ROW_S HELP_RTC_SETTIME{szEquHelpRtc, 1};
inline constexpr EQU_HELP_ROW_S HELP_RTC_GETTIME{szEquHelpRtc, 2};
inline constexpr EQU_HELP_ROW_S HELP_RTC_SETZONE{szEquHelpRtc, 3};
inline constexpr EQU_HELP_ROW_S HELP_RTC_GETZONE{szEquHelpRtc, 4};
inline constexpr EQU_HELP_ROW_S HELP_RTC_TIME{szEquHelpRtc, 5};
inline constexpr EQU_HELP_ROW_S HELP_RTC_DAY{szEquHelpRtc, 6};
inline constexpr EQU_HELP_ROW_S HELP_RTC_ZONE{szEquHelpRtc, 7};
inline constexpr EQU_HELP_ROW_S HELP_RTC_BATTERY{szEquHelpRtc, 8};
inline constexpr EQU_HELP_ROW_S HELP_MANUINFO{szEquHelpManuinfo, 0};
inline constexpr EQU_HELP_ROW_S HELP_MANUINFO_DEVICE{szEquHelpManuinfo, 1};
inline constexpr EQU_HELP_ROW_S HELP_MANUINFO_UPDATE{szEquHelpManuinfo, 2};
inline constexpr EQU_HELP_ROW_S HELP_MANUINFO_ID{szEquHelpManuinfo, 3};
inline constexpr EQU_HELP_ROW_S HELP_MANUINFO_CONTENT{szEquHelpManuinfo, 4};
inline constexpr EQU_HELP_ROW_S HELP_OEM_LOGO{szEquHelpOem, 0};
inline constexpr EQU_HELP_ROW_S HELP_VERSION{szEquHelpVersion, 0};
inline constexpr EQU_HELP_ROW_S HELP_VERSION_BOARD_TYPE{szEquHelpVersion, 1};

// Board peripherals: chips, temperatures and heaters, alarms, power supplies, software.
inline constexpr EQU_HELP_ROW_S HELP_CHIP_CHIPCHECK{szEquHelpChip, 0};
inline constexpr EQU_HELP_ROW_S HELP_CHIP_RESETLINE{szEquHelpChip, 1};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_MAINBOARD{szEquHelpTemperature, 0};
inline constexpr EQU_HELP_ROW_S HELP_TEMP{szEquHelpTemperature, 1};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_LOW{szEquHelpTemperature, 2};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HIGH{szEquHelpTemperature, 3};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_ID{szEquHelpTemperature, 4};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HEAT{szEquHelpTemperature, 5};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HEAT_SLOT{szEquHelpTemperature, 6};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HEAT_STATUS{szEquHelpTemperature, 7};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HEAT_CTRL{szEquHelpTemperature, 8};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_HEAT_SWITCH{szEquHelpTemperature, 9};
inline constexpr EQU_HELP_ROW_S HELP_TEMP_NETBOARD{szEquHelpTemperature, 10};
inline constexpr EQU_HELP_ROW_S HELP_ALARM{szEquHelpAlarm, 0};
inline constexpr EQU_HELP_ROW_S HELP_ALARM_SET{szEquHelpAlarm, 1};
inline constexpr EQU_HELP_ROW_S HELP_ALARM_GET{szEquHelpAlarm, 2};
inline constexpr EQU_HELP_ROW_S HELP_ALARM_OUTPUT{szEquHelpAlarm, 3};
inline constexpr EQU_HELP_ROW_S HELP_ALARM_INPUT{szEquHelpAlarm, 4};
inline constexpr EQU_HELP_ROW_S HELP_POWER{szEquHelpPower, 0};
inline constexpr EQU_HELP_ROW_S HELP_POWER_INDEX{szEquHelpPower, 1};
inline constexpr EQU_HELP_ROW_S HELP_POWER_STATUS{szEquHelpPower, 2};
inline constexpr EQU_HELP_ROW_S HELP_SOFTWARE{szEquHelpSoftware, 0};
inline constexpr EQU_HELP_ROW_S HELP_SOFTWARE_STATUS{szEquHelpSoftware, 1};
inline constexpr EQU_HELP_ROW_S HELP_SOFTWARE_UPDATE{szEquHelpSoftware, 2};
inline constexpr EQU_HELP_ROW_S HELP_SOFTWARE_SHUTDOWN{szEquHelpSoftware, 3};

// HDMI EDID, PCIe links and lanes, CPU information.
inline constexpr EQU_HELP_ROW_S HELP_EDID{szEquHelpEdid, 0};
inline constexpr EQU_HELP_ROW_S HELP_EDID_PORT{szEquHelpEdid, 2};
inline constexpr EQU_HELP_ROW_S HELP_PCIE{szEquHelpPcie, 0};
inline constexpr EQU_HELP_ROW_S HELP_PCIE_CHANNEL{szEquHelpPcie, 1};
inline constexpr EQU_HELP_ROW_S HELP_PCIE_STATUS{szEquHelpPcie, 2};
inline constexpr EQU_HELP_ROW_S HELP_X4TOX2{szEquHelpx4tox2, 0};
inline constexpr EQU_HELP_ROW_S HELP_X4TOX2_X2TOX4{szEquHelpx4tox2, 1};
inline constexpr EQU_HELP_ROW_S HELP_X4TOX2_FILENAME{szEquHelpx4tox2, 2};
inline constexpr EQU_HELP_ROW_S HELP_CPUINFO{szEquHelpCpuInfo, 0};

// Network: addresses, ping, link, loopback and port modes.
inline constexpr EQU_HELP_ROW_S HELP_IP_SERVERIP{szEquHelpIP, 0};
inline constexpr EQU_HELP_ROW_S HELP_IP_DEVICEIP{szEquHelpIP, 1};
inline constexpr EQU_HELP_ROW_S HELP_IP_ADDR{szEquHelpIP, 2};
inline constexpr EQU_HELP_ROW_S HELP_NET_ETHERNET{szEquHelpNet, 0};
inline constexpr EQU_HELP_ROW_S HELP_NET_PING{szEquHelpNet, 1};
inline constexpr EQU_HELP_ROW_S HELP_NET_PING_OPT{szEquHelpNet, 2};
inline constexpr EQU_HELP_ROW_S HELP_NET_PING_COUNT{szEquHelpNet, 3};
inline constexpr EQU_HELP_ROW_S HELP_NET_PING_IP{szEquHelpNet, 4};
inline constexpr EQU_HELP_ROW_S HELP_NET_SETMAC{szEquHelpNet, 5};
inline constexpr EQU_HELP_ROW_S HELP_NET_GETMAC{szEquHelpNet, 6};
inline constexpr EQU_HELP_ROW_S HELP_NET_MACADDR{szEquHelpNet, 7};
inline constexpr EQU_HELP_ROW_S HELP_NET_STATUS{szEquHelpNet, 8};
inline constexpr EQU_HELP_ROW_S HELP_NET_SPEED{szEquHelpNet, 9};
inline constexpr EQU_HELP_ROW_S HELP_NET_SPEED_VALUE{szEquHelpNet, 10};
inline constexpr EQU_HELP_ROW_S HELP_NET_DUPLEX{szEquHelpNet, 11};
inline constexpr EQU_HELP_ROW_S HELP_NET_DUPLEX_VALUE{szEquHelpNet, 12};
inline constexpr EQU_HELP_ROW_S HELP_NET_LINK{szEquHelpNet, 13};
inline constexpr EQU_HELP_ROW_S HELP_NET_COPPER{szEquHelpNet, 14};
inline constexpr EQU_HELP_ROW_S HELP_NET_FIBER{szEquHelpNet, 15};
inline constexpr EQU_HELP_ROW_S HELP_NET_INT_PHY{szEquHelpNet, 17};
inline constexpr EQU_HELP_ROW_S HELP_NET_EXT{szEquHelpNet, 18};
inline constexpr EQU_HELP_ROW_S HELP_NET_PKT_LEN{szEquHelpNet, 19};
inline constexpr EQU_HELP_ROW_S HELP_NET_PKT_NUM{szEquHelpNet, 20};
inline constexpr EQU_HELP_ROW_S HELP_NET_PKT_TYPE{szEquHelpNet, 21};
inline constexpr EQU_HELP_ROW_S HELP_NET_SWITCHREG{szEquHelpNet, 22};
inline constexpr EQU_HELP_ROW_S HELP_NET_REG_ADDR{szEquHelpNet, 23};
inline constexpr EQU_HELP_ROW_S HELP_NET_REG_VALUE{szEquHelpNet, 24};
inline constexpr EQU_HELP_ROW_S HELP_NET_CHIP_ADDR{szEquHelpNet, 25};
inline constexpr EQU_HELP_ROW_S HELP_NET_PORT_TYPE{szEquHelpNet, 26};

// Storage tests and the run-time record.
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME{szEquHelpRuntime, 0};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_RESET{szEquHelpRuntime, 1};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_DEVICE{szEquHelpRuntime, 2};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_WORK_TIME{szEquHelpRuntime, 3};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_DISPLAY{szEquHelpRuntime, 4};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_OPEN{szEquHelpRuntime, 5};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_RECORD{szEquHelpRuntime, 6};
inline constexpr EQU_HELP_ROW_S HELP_RUNTIME_UNDO{szEquHelpRuntime, 7};
inline constexpr EQU_HELP_ROW_S HELP_CLEAR{szEquHelpClear, 0};
inline constexpr EQU_HELP_ROW_S HELP_CLEAR_INFORMATION{szEquHelpClear, 1};
inline constexpr EQU_HELP_ROW_S HELP_CLEAR_FORMAT{szEquHelpClear, 2};
inline constexpr EQU_HELP_ROW_S HELP_CLEAR_LANGUAGEINFO{szEquHelpClear, 3};
inline constexpr EQU_HELP_ROW_S HELP_CLEAR_EEPROM{szEquHelpClear, 4};
inline constexpr EQU_HELP_ROW_S HELP_RAM{szEquHelpRam, 0};
inline constexpr EQU_HELP_ROW_S HELP_RAM_FLAG{szEquHelpRam, 1};
inline constexpr EQU_HELP_ROW_S HELP_RAM_BUS{szEquHelpRam, 2};
inline constexpr EQU_HELP_ROW_S HELP_RAM_UNIT{szEquHelpRam, 3};
inline constexpr EQU_HELP_ROW_S HELP_RAM_CAPACITY{szEquHelpRam, 4};
inline constexpr EQU_HELP_ROW_S HELP_USB{szEquHelpUsb, 0};
inline constexpr EQU_HELP_ROW_S HELP_USB_ACCESS{szEquHelpUsb, 1};
inline constexpr EQU_HELP_ROW_S HELP_USB_STATUS{szEquHelpUsb, 2};
inline constexpr EQU_HELP_ROW_S HELP_HDD{szEquHelpHarddisk, 0};
inline constexpr EQU_HELP_ROW_S HELP_HDD_SLOT{szEquHelpHarddisk, 1};
inline constexpr EQU_HELP_ROW_S HELP_HDD_NUM{szEquHelpHarddisk, 2};
inline constexpr EQU_HELP_ROW_S HELP_HDD_PRESENT{szEquHelpHarddisk, 3};
inline constexpr EQU_HELP_ROW_S HELP_HDD_RW{szEquHelpHarddisk, 4};
inline constexpr EQU_HELP_ROW_S HELP_HDD_DEU{szEquHelpHarddisk, 5};
inline constexpr EQU_HELP_ROW_S HELP_HDD_RW_SLOT{szEquHelpHarddisk, 6};
inline constexpr EQU_HELP_ROW_S HELP_HDD_CAPACITY{szEquHelpHarddisk, 7};
inline constexpr EQU_HELP_ROW_S HELP_HDD_ALL{szEquHelpHarddisk, 8};
inline constexpr EQU_HELP_ROW_S HELP_ESATA{szEquHelpEsata, 0};
inline constexpr EQU_HELP_ROW_S HELP_ESATA_SECTOR{szEquHelpEsata, 1};
inline constexpr EQU_HELP_ROW_S HELP_ESATA_TYPE{szEquHelpEsata, 2};
inline constexpr EQU_HELP_ROW_S HELP_ESATA_STATUS{szEquHelpEsata, 3};
inline constexpr EQU_HELP_ROW_S HELP_ESATA_TIMES{szEquHelpEsata, 4};
