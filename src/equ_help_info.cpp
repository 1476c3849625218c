// Keyword help tables of every test unit. Command elements refer to a table
// and a row; the help printer shows the keyword with the English or Chinese
// text. This file is compiled with a GBK execution charset, so the Chinese
// texts below (written in UTF-8) are stored as GBK bytes, as the console of
// the test PC expects. Texts are kept exactly as the operators know them,
// misspellings included. Rows are positional: an empty row keeps the numbers
// of the rows behind it.
#include "equ_help_info.h"

// Shared by every module; row 0 starts nearly every command.
const EQU_KEY_HELP_INFO_S szEquHelpComm[28] = {
    {"test", "equipment test", "装备测试"},
    {"display", "dispaly information", "相应信息显示"},
    {"set", "Set Test", "设置测试"},
    {"get", "Get Test", "获取测试"},
    {"board type string", "mainboard/netboard", "单板索引"},
    {nullptr, nullptr, nullptr},
    {"delete", "delete test", "删除测试"},
    {"filename", "filename", "文件名"},
    {"autotest", "auto test", "自动化测试"},
    {"port num", "port num : 0 ~ 1", "端口序号"},
    {"tx port num", "tx port num : 0 ~ n / all", "发送端口序号"},
    {"rx port num", "rx port num : 0 ~ n / all", "接收端口序号"},
    {"input port num", "input port num : 0 ~ n / all", "输入端口序号"},
    {"output port num", "output port num : 0 ~ n / all", "输出端口序号"},
    {"slot", "slot : 0 ~ 2    /all ", "槽位号"},
    {"direction", "direction : left/right/all", "方向"},
    {"open", "Open Test", "开启测试"},
    {"close", "Close Test", "关闭测试"},
    {"open/close", "open/close", "打开或关闭"},
    {"enable", "Enable Test", "使能测试"},
    {"disable", "Disable Test", "关闭测试"},
    {"enable/disable", "enable/disable", "使能或禁止"},
    {"on/off", "on/off", "打开或关闭"},
    {"download", "Download information from PC to device", "信息下载"},
    {"upload", "Upload information from device to PC", "信息上传"},
    {"info", "Display information", "显示信息"},
    {"check", "check md5 val", "检查md5值"},
    {"HDMI", "HDMI : 0 ~ 5 ", "检查HDMI"},
};

const EQU_KEY_HELP_INFO_S szEquHelpFlash[6] = {
    {"flash", "Flash Test", "Flash测试"},
    {"read", "flash read test", "Flash读测试"},
    {"write", "flash write test", "Flash写测试"},
    {"erase", "flash erase test", "Flash擦除测试"},
    {"partition", "flash partition name", "分区名"},
    {"offset", "flash offset", "偏移地址"},
};

const EQU_KEY_HELP_INFO_S szEquHelpIP[3] = {
    {"serverip", "the server's IP address", "服务器地址"},
    {"deviceip", "the device's IP address", "主机地址"},
    {"IPv4-address", "the IPv4 address", "IP地址"},
};

const EQU_KEY_HELP_INFO_S szEquHelpVersion[2] = {
    {"version", "The Version Of This Board Hardware & Software", "单板软硬件"},
    {"board type string", "mainboard", "单板索引"},
};

const EQU_KEY_HELP_INFO_S szEquHelpTemperature[11] = {
    {"mainboard", "Mainboard Test", "主控板"},
    {"temperature", "Temperature Test", "温度测试"},
    {"temp_low", "The Low Temperature, -100 ~ 100", "温度下限"},
    {"temp_high", "The high Temperature, -100 ~ 100", "温度上限"},
    {"temp_id", "The ID as Temperature, 0 ~ 1", "温感器ID号"},
    {"heat", "Heat Test", "加热模块测试"},
    {"heat_slot", "The Slot as heat, 0 ~ 1/all", "加热控制槽位"},
    {"heat_status", "The Status as heat", "加热状态"},
    {"heat_ctrl", "Heat Ctrl", "加热控制"},
    {"heat_switch", "Switch as Heat Ctrl, on/off", "加热设置"},
    {"netboard", "Netboard Test", "网络板"},
};

const EQU_KEY_HELP_INFO_S szEquHelpButton[4] = {
    {"button", "Button Test", "按键测试"},
    {"reset", "reset key test", "复位键测试"},
    {"powerkey", "power key test", "电源键测试"},
    {"time", "wait time : 1 ~ 255s", "等待时间"},
};

const EQU_KEY_HELP_INFO_S szEquHelpNet[27] = {
    {"ethernet", "Ethernet Test", "网口测试"},
    {"ping", "ping network test", "ping网络测试"},
    {"-c", "ping option", "ping选项"},
    {"count", "ping times choose", "ping次数"},
    {"ip address", "remote ip", "对端IP地址"},
    {"setmac", "Set The Mac Address Of The Ethernet Port", "设置网口mac地址"},
    {"getmac", "Get The Mac Address Of The Ethernet Port", "显示网口mac地址"},
    {"macaddr", "Mac Address: xx:xx:xx:xx:xx:xx", "Mac地址: xx:xx:xx:xx:xx:xx"},
    {"status", "port status", "端口状态"},
    {"speed", "port speed", "端口速率"},
    {"speed value", "10/100/1000M/auto", "速率值"},
    {"duplex", "duplex mode", "双工模式"},
    {"duplex value", "10/100M:half/full/auto, 1000M:full/auto", "双工模式值"},
    {"link", "Link Test", "链路测试"},
    {"copper", "Copper Test", "电口测试"},
    {"fiber", "Fiber Test", "光口测试"},
    {"loopback", "Loopback Test", "环回测试"},
    {"int-phy", "Internal Loopback Phy Test", "PHY内环测试"},
    {"ext", "External Test", "外环测试"},
    {"pkt_len", "packet length : 64~1500", "报文长度:64~1500"},
    {"pkt_num", "packet num : 1 ~ 255", "报文数目: 1~255"},
    {"pkt_type", "packet type : 0 ~258", "报文内容:0~258"},
    {"switchreg", "switch reg", "交换芯片寄存器"},
    {"reg addr", "reg addr", "寄存器地址"},
    {"reg value", "reg value", "寄存器值"},
    {"chip addr", "chip addr", "芯片地址"},
    {"port type", "port type", "端口类型"},
};

const EQU_KEY_HELP_INFO_S szEquHelpSubcard[4] = {
    {"subcard", "Subcard Test", "子卡测试"},
    {"slot", "subcard slot", "子卡槽位"},
    {"status", "subcard status", "子卡状态"},
    {"type", "subcard type", "子卡类型"},
};

const EQU_KEY_HELP_INFO_S szEquHelpFan[6] = {
    {"fan", "Fan Test", "风扇测试"},
    {"speed", "fan speed", "风扇转速"},
    {"set", "set fan speed", "设置风扇转速"},
    {"get", "get fan speed", "获取风扇转速"},
    {"fan_id", "fan id : 0 ~ n / all", "风扇序号"},
    {"speed level", "speed level : 0 ~ 100", "转速等级"},
};

const EQU_KEY_HELP_INFO_S szEquHelpPcie[3] = {
    {"pcie", "PCIe Test", "PCIe测试"},
    {"channel", "pcie channel : 0 ~ n / all", "PCIe通道号"},
    {"status", "pcie link status", "PCIe链路状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpDigital[1] = {
    {"digital", "Digital Display Test", "数码管测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpBIOS[2] = {
    {"bios", "BIOS Test", "BIOS测试"},
    {"version", "bios version", "BIOS版本"},
};

const EQU_KEY_HELP_INFO_S szEquHelpSoftware[4] = {
    {"software", "software test", "软件加载测试"},
    {"status", "software status", "加载状态"},
    {"update", "update", "在线更新"},
    {"shutdown", "shutdown", "关机"},
};

const EQU_KEY_HELP_INFO_S szEquHelpBoot[1] = {
    {"boot", "Boot Test", "启动测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpFirmware[9] = {
    {"firmware", "Firmware Test", "固件测试"},   {"update", "update firmware", "固件升级"},
    {"version", "firmware version", "固件版本"}, {"filename", "firmware file name", "固件文件名"},
    {"check", "check firmware", "固件校验"},     {"backup", "backup firmware", "固件备份"},
    {"restore", "restore firmware", "固件恢复"}, {"erase", "erase firmware", "固件擦除"},
    {"status", "firmware status", "固件状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpRuntime[8] = {
    {"runtime", "run time test", "系统运行时间"},
    {"_reset", "reset run time record", "清除运行时间"},
    {"device", "runtime device", "设备"},
    {"work-time", "work time", "运行时间"},
    {"_display", "display run time record", "显示运行时间"},
    {"_device", "open record run time function", "打开记录运行时间功能"},
    {"record", "runtime record", "运行时间记录"},
    {"undo", "close record run time function", "关闭记录运行时间功能"},
};

// Row 3 stays empty: it belongs to "languageinfo", which no command uses.
const EQU_KEY_HELP_INFO_S szEquHelpClear[5] = {
    {"clear", "clear test", "清除测试"},
    {"information", "clear information test", "清除信息测试"},
    {"format ", "flash format test", "Flash格式化测试"},
    {nullptr, nullptr, nullptr},
    {"eeprom ", "clear eeprom", "清除EEPROM"},
};

const EQU_KEY_HELP_INFO_S szEquHelpManuinfo[5] = {
    {"manuinfo", "The Manuinfo Of This Device", "设备制造信息"},
    {"device", "device manuinfo", "设备电子标签"},
    {"update", "Update Information", "修改电子标签内容"},
    {"manuinfo_id", "manuinfo id", "电子标签ID "},
    {"manuinfo_content", "manuinfo content", "电子标签ID内容 "},
};

const EQU_KEY_HELP_INFO_S szEquHelpRam[5] = {
    {"ram", "ram test", "内存测试"},
    {"flag", "ram test flag", "内存测试标志"},
    {"bus", "ram bus test", "内存总线测试"},
    {"unit", "ram unit test", "内存单元测试"},
    {"capacity", "ram capacity test", "内存容量测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpAlarm[5] = {
    {"alarm", "Alarm Test", "告警测试"},
    {"set", "set alarm status", "设置告警输出"},
    {"get", "get alarm status", "获取告警输入状态"},
    {"output", "alarm output", "设置告警输出状态"},
    {"input", "alarm inout", "获取告警输入状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpUsb[3] = {
    {"usb", "USB Test", "USB测试"},
    {"access", "USB access test", "USB读写测试"},
    {"status", "USB status", "USB状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpAudio[7] = {
    {"audio", "Audio Test", "音频测试"},
    {"input", "audio input", "音频输入"},
    {"output", "audio output", "音频输出"},
    {"loopback", "audio loopback test", "音频环回测试"},
    {"channel", "audio channel : 0 ~ n / all", "音频通道号"},
    {"volume", "audio volume", "音量"},
    {"talk", "talk test", "对讲测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpEdid[3] = {
    {"edid", "Get EDID", "获取EDID"},
    {"type", "hdmi, vga, dvi", "视频接口类型"},
    {"port", "VGA：0,HDMI0：1,HDMI1：2", "视频输出口"},
};

const EQU_KEY_HELP_INFO_S szEquHelpBuzzer[2] = {
    {"buzzer", "Buzzer Test", "蜂鸣器测试"},
    {"on/off", "on/off", "打开或关闭"},
};

const EQU_KEY_HELP_INFO_S szEquHelpInfrared[1] = {
    {"infrared", "Infrared Test", "红外测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpCpuInfo[1] = {
    {"cpu", "Display cpu info", "显示CPU信息"},
};

const EQU_KEY_HELP_INFO_S szEquHelpOptic[6] = {
    {"optic", "Optic Module Test", "光模块测试"},
    {"info", "optic module info", "光模块信息"},
    {"power", "optic power", "光功率"},
    {"temperature", "optic temperature", "光模块温度"},
    {"port num", "optic port num : 0 ~ n", "光口序号"},
    {"status", "optic status", "光模块状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpPower[3] = {
    {"power", "power", "电源"},
    {"index", "index 1~2", "电源槽位号"},
    {"status", "status", "电源状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpOem[4] = {
    {"logo", "logo", "下载logo"},
    {"oem", "oem info", "OEM信息"},
    {"language", "language info", "语言信息"},
    {"filename", "oem file name", "OEM文件名"},
};

const EQU_KEY_HELP_INFO_S szEquHelpGps[8] = {
    {"nvrgps", "gps test", "GPS测试"},
    {"set", "set rate", "参数设置"},
    {"get", "get satellite/gpstime", "获取卫星数/GPS时间"},
    {"rate", "set band rate of gps", "设置GPS模块的通讯波特率"},
    {"band rate value", "9600/115200", "GPS模块的通讯波特率数值"},
    {"satellite", "get satellite 0", "获取GPS模块当前识别到的卫星数"},
    {"gpstime", "get gpstime", "获取GPS时间"},
    {"portnum", "only support 0", "仅支持获取GPS的0号口时间"},
};

const EQU_KEY_HELP_INFO_S szEquHelpLed[3] = {
    {"led", "LED Test", "指示灯测试"},
    {"off", "all led off", "关闭所有指示灯"},
    {"on", "all led flicker", "所有指示灯闪烁"},
};

const EQU_KEY_HELP_INFO_S szEquHelpRtc[9] = {
    {"rtc", "Realtime Controller Test", "实时时钟控制器测试"},
    {"settime", "Set Time", "设置时间"},
    {"gettime", "Get Time", "获取时间"},
    {"setzone", "set time zone", "设置时区"},
    {"getzone", "get time zone", "获取时区"},
    {"time", "Time Formate: hh:mm:ss", "时间输入格式: hh:mm:ss"},
    {"day", "Day Formate: yyyy-mm-dd", "日期输入格式: yyyy-mm-dd"},
    {"time zone", "time zone: GMT+8", "时区文件"},
    {"battery", "rtc battery Test", "rtc battery 测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpHasa[3] = {
    {"hasa", "Hasa Test", "Hasa测试"},
    {"status", "hasa status", "Hasa状态"},
    {"reset", "hasa reset", "Hasa复位"},
};

const EQU_KEY_HELP_INFO_S szEquHelpSerial[13] = {
    {"RS", "RS serial test", "RS232串口测试"},
    {"RS232", "RS232 serial test", "RS232串口测试"},
    {"RS422", "RS422 serial test", "RS422串口测试"},
    {"RS485", "RS485 serial test", "RS485串口测试"},
    {"loopback", "serial loopback test", "串口环回测试"},
    {"pkt_len", "packet length : 64~255", "报文长度:64~255"},
    {"pkt_num", "packet num : 1 ~ 255", "报文数目: 1~255"},
    {"pkt_type", "packet type : 0 ~258", "报文内容:0~258"},
    {"485_master", "rs485 master test", "环回主模式"},
    {"485_slave", "rs485 slave test", "环回从模式"},
    {"baudrate", "baudrate test", "设置波特率"},
    {"baudrate", "9600/115200", "波特率"},
    {"tx port num", "tx port num : 0", "发送端口序号"},
};

const EQU_KEY_HELP_INFO_S szEquHelpWatchdog[1] = {
    {"watchdog", "Watchdog Test", "看门狗测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpChip[2] = {
    {"chipcheck", "Key Chip Test", "关键芯片自检测试"},
    {"resetline", "Reset Chip Test", "芯片复位控制（软复位）测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpVideo[7] = {
    {"video", "Video Test", "视频测试"},
    {"input", "video input", "视频输入"},
    {"output", "video output", "视频输出"},
    {"channel", "video channel : 0 ~ n / all", "视频通道号"},
    {"loss", "video loss test", "视频丢失测试"},
    {"format", "video format", "视频制式"},
    {"color", "color bar test", "彩条测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpSDI[4] = {
    {"sdi", "SDI Test", "SDI测试"},
    {"channel", "sdi channel : 0 ~ n / all", "SDI通道号"},
    {"status", "sdi status", "SDI状态"},
    {"loopback", "sdi loopback test", "SDI环回测试"},
};

const EQU_KEY_HELP_INFO_S szEquHelpMcu[3] = {
    {"mcu", "MCU Test", "单片机测试"},
    {"version", "mcu version", "单片机版本"},
    {"update", "mcu update", "单片机升级"},
};

const EQU_KEY_HELP_INFO_S szEquHelpHarddisk[9] = {
    {"harddisk", "harddisk test", "硬盘测试"},
    {"harddisk slot", "harddisk slot for present test(0~3)", "硬盘槽位号"},
    {"num", "num of sector for read/write test", "读写扇区数"},
    {"present", "harddisk present test", "硬盘在位测试"},
    {"hdd read/write", "read/write are the same", "硬盘读写"},
    {"harddisk deu", "deu:hardisk cabinet status, only support 0(absent)", "硬盘柜号"},
    {"harddisk slot for read/write test", "harddisk slot for read/write test(0~3 | all)",
     "读写测试的硬盘槽位号"},
    {"harddisk capacity", "get harddisk capacity", "获取硬盘容量"},
    {"harddisk presetn all test", "get harddisk present all", "获取所有硬盘在位状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpEsata[5] = {
    {"esata", "esata test", "eSATA测试"}, {"sector", "sector", "扇区读写"},
    {"type", "esata type", "eSATA类型"},  {"status", "esata status", "eSATA状态"},
    {"times", "times", "次数"},
};

const EQU_KEY_HELP_INFO_S szEquHelpCpld[4] = {
    {"cpld", "CPLD Test", "CPLD测试"},
    {"version", "cpld version", "CPLD版本"},
    {"read", "read cpld reg", "读CPLD寄存器"},
    {"write", "write cpld reg", "写CPLD寄存器"},
};

const EQU_KEY_HELP_INFO_S szEquHelpSsd[2] = {
    {"ssd", "SSD Test", "SSD测试"},
    {"status", "ssd status", "SSD状态"},
};

const EQU_KEY_HELP_INFO_S szEquHelpx4tox2[3] = {
    {"x4tox2", "pcie x4 to x2", "PCIe由x4切换为x2"},
    {"x2tox4", "pcie x2 to x4", "PCIe由x2切换为x4"},
    {"filename", "filename", "文件名"},
};
