"""The cases of scripts/board: what is on the board, and every line that its console shows from start to stop."""

import pathlib

EXAMPLE = pathlib.Path(__file__).resolve().parent.parent / "examples" / "device"
WORKING = "mnt/mtd/code/config_file/protocolconfig.xml"
FACTORY = "mnt/mtd/code/factory_setting/protocolconfig.xml"
SERVICES = "factory_setting"


def sample(path):
    return (EXAMPLE / path).read_bytes()


def service(name):
    """The start program and the server of one more protocol, made from those of the sample device."""
    start_program = sample("factory_setting/Modbus_loadservice").replace(b"Modbus", name.encode())
    return {
        f"factory_setting/{name}_loadservice": start_program,
        f"mnt/mtd/code/services/{name}_Server": sample("mnt/mtd/code/services/server"),
    }


def configuration(encoding):
    """A configuration with Chinese names, in which nothing but the bytes depends on the encoding."""
    return f"""<?xml version="1.0" encoding="{encoding}"?>
<Configure name="示例设备">
	<Configure name="ProtocolConfig">
		<ConfigItem ProtocolName="网关" ProtocolId="网关-1" ProtocolType="1" ProtocolEnable="true"/>
		<ConfigItem ProtocolName="水泵" ProtocolId="水泵-2" ProtocolType="2" ProtocolEnable="false"/>
		<ConfigItem ProtocolName="电表" ProtocolId="电表-3" ProtocolType="3" ProtocolEnable="true"/>
		<ConfigItem ProtocolName="Modbus" ProtocolId="modbus-tcp" ProtocolType="4" ProtocolEnable="true"/>
	</Configure>
</Configure>
""".encode(encoding)


WORKING_FAILED = "Run ConfigFile(/mnt/mtd/code/config_file/protocolconfig.xml) failed"
FACTORY_FAILED = "Run ConfigFile(/mnt/mtd/code/factory_setting/protocolconfig.xml) failed"
CUT = sample(WORKING).split(b"BACnet")[0]

# The factory copy has no MQTT, and BACnet is disabled in both.
FACTORY_CONSOLE = [
    "board: Wyvern 1",
    WORKING_FAILED,
    "Modbus_Server started",
    "Run LoadServcie(/factory_setting/Modbus_loadservice) ",
    "OPCUA_Server started",
    "Run LoadServcie(/factory_setting/OPCUA_loadservice) ",
    "Protocol(BACnet) disable",
    "IEC104_Server started",
    "Run LoadServcie(/factory_setting/IEC104_loadservice) ",
    "网关_Server started",
    "Run LoadServcie(/factory_setting/网关_loadservice) ",
    "board: servers after start",
    "Modbus_Server",
    "OPCUA_Server",
    "IEC104_Server",
    "网关_Server",
    "board: Wyvern 0",
    WORKING_FAILED,
    "Stop LoadServcie(killall -15 Modbus_Server) ",
    "Stop LoadServcie(killall -15 OPCUA_Server) ",
    "Protocol(BACnet) disable",
    "Stop LoadServcie(killall -15 IEC104_Server) ",
    "Stop LoadServcie(killall -15 网关_Server) ",
    "board: servers after stop",
    "board: end",
]

CHINESE_CONSOLE = [
    "board: Wyvern 1",
    "网关_Server started",
    "Run LoadServcie(/factory_setting/网关_loadservice) ",
    "Protocol(水泵) disable",
    "电表_Server started",
    "Run LoadServcie(/factory_setting/电表_loadservice) ",
    "Modbus_Server started",
    "Run LoadServcie(/factory_setting/Modbus_loadservice) ",
    "board: servers after start",
    "网关_Server",
    "电表_Server",
    "Modbus_Server",
    "board: Wyvern 0",
    "Stop LoadServcie(killall -15 网关_Server) ",
    "Protocol(水泵) disable",
    "Stop LoadServcie(killall -15 电表_Server) ",
    "Stop LoadServcie(killall -15 Modbus_Server) ",
    "board: servers after stop",
    "board: end",
]

# What begins with sh: and killall: is BusyBox's wording.
NO_SERVICES_CONSOLE = [
    "board: Wyvern 1",
    "sh: /factory_setting/: not found",
    "Run LoadServcie(/factory_setting/) ",
    "sh: /factory_setting/: not found",
    "Run LoadServcie(/factory_setting/) ",
    "sh: /factory_setting/: not found",
    "Run LoadServcie(/factory_setting/) ",
    "Protocol(BACnet) disable",
    "sh: /factory_setting/: not found",
    "Run LoadServcie(/factory_setting/) ",
    "sh: /factory_setting/: not found",
    "Run LoadServcie(/factory_setting/) ",
    "board: servers after start",
    "board: Wyvern 0",
    "killall: _Server: no process killed",
    "Stop LoadServcie(killall -15 _Server) ",
    "killall: _Server: no process killed",
    "Stop LoadServcie(killall -15 _Server) ",
    "killall: _Server: no process killed",
    "Stop LoadServcie(killall -15 _Server) ",
    "Protocol(BACnet) disable",
    "killall: _Server: no process killed",
    "Stop LoadServcie(killall -15 _Server) ",
    "killall: _Server: no process killed",
    "Stop LoadServcie(killall -15 _Server) ",
    "board: servers after stop",
    "board: end",
]

# name: what it is about; the files that differ from the sample device (None: the file or directory is not there); the
# console. Names on the console are UTF-8, whatever the configuration is written in.
CASES = {
    "normal": ("the sample device as it is", {}, [
        "board: Wyvern 1",
        "Modbus_Server started",
        "Run LoadServcie(/factory_setting/Modbus_loadservice) ",
        "OPCUA_Server started",
        "Run LoadServcie(/factory_setting/OPCUA_loadservice) ",
        "MQTT_Server started",
        "Run LoadServcie(/factory_setting/MQTT_loadservice) ",
        "Protocol(BACnet) disable",
        "IEC104_Server started",
        "Run LoadServcie(/factory_setting/IEC104_loadservice) ",
        "网关_Server started",
        "Run LoadServcie(/factory_setting/网关_loadservice) ",
        "board: servers after start",
        "Modbus_Server",
        "OPCUA_Server",
        "MQTT_Server",
        "IEC104_Server",
        "网关_Server",
        "board: Wyvern 0",
        "Stop LoadServcie(killall -15 Modbus_Server) ",
        "Stop LoadServcie(killall -15 OPCUA_Server) ",
        "Stop LoadServcie(killall -15 MQTT_Server) ",
        "Protocol(BACnet) disable",
        "Stop LoadServcie(killall -15 IEC104_Server) ",
        "Stop LoadServcie(killall -15 网关_Server) ",
        "board: servers after stop",
        "board: end",
    ]),
    "working-missing": ("no working configuration", {WORKING: None}, FACTORY_CONSOLE),
    "working-cut": ("the working configuration ends inside an entry", {WORKING: CUT}, FACTORY_CONSOLE),
    "working-empty": ("the working configuration has no byte", {WORKING: b""}, FACTORY_CONSOLE),
    "working-not-well-formed": (
        "the working configuration closes an element that is not open",
        {WORKING: sample(WORKING).replace(b"</Configure>", b"</Config>")},
        FACTORY_CONSOLE,
    ),
    "both-damaged": ("working configuration cut, factory copy empty", {WORKING: CUT, FACTORY: b""}, [
        "board: Wyvern 1",
        WORKING_FAILED,
        FACTORY_FAILED,
        "board: servers after start",
        "board: Wyvern 0",
        WORKING_FAILED,
        FACTORY_FAILED,
        "board: servers after stop",
        "board: end",
    ]),
    "no-service-directory": (
        "no start programs: what the commands are then finds nothing",
        {SERVICES: None},
        NO_SERVICES_CONSOLE,
    ),
    "chinese-gb2312": (
        "Chinese names, in GB2312",
        {WORKING: configuration("gb2312"), **service("电表")},
        CHINESE_CONSOLE,
    ),
    "chinese-utf-8": ("Chinese names, in UTF-8", {WORKING: configuration("utf-8"), **service("电表")}, CHINESE_CONSOLE),
}
