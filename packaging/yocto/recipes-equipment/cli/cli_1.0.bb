SUMMARY = "Factory hardware-test shell of the PLM7140 NVR mainboard"
DESCRIPTION = "The equipment test commands on the serial console of the board."
LICENSE = "CLOSED"

# Where the sources come from: set in local.conf or a bbappend
# (a git URL with ;branch=..., or file:// of a checkout).
CLI_SRC_URI ??= "git://git.invalid/cli.git;protocol=https;branch=main"
SRC_URI = "${CLI_SRC_URI}"
SRCREV ?= "${AUTOREV}"
PV = "1.0+git${SRCPV}"
S = "${WORKDIR}/git"

# The board vendor's driver library: the recipe that stages it, and the file.
CLI_DRIVER_RECIPE ??= "plm7140-driver"
CLI_VENDOR_DRIVER ??= "${STAGING_LIBDIR}/libdriver.so"
DEPENDS = "${CLI_DRIVER_RECIPE}"
RDEPENDS:${PN} = "${CLI_DRIVER_RECIPE}"

inherit cmake

EXTRA_OECMAKE = "-DCLI_VENDOR_DRIVER=${CLI_VENDOR_DRIVER}"

COMPATIBLE_HOST = "aarch64.*-linux"
FILES:${PN} = "${bindir}/cli"
