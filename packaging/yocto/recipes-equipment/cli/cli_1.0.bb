SUMMARY = "Factory hardware-test shell of the PLM7140 NVR mainboard"
DESCRIPTION = "The equipment test commands on the serial console of the board."
LICENSE = "CLOSED"

# The layer says where the repository is (layer.conf, a bbappend or
# local.conf), e.g. CLI_GIT_URL = "git://git.example.com/cli.git;protocol=ssh".
SRC_URI = "${CLI_GIT_URL};branch=main"
# The released commit of main that is built, so that a build is reproducible.
# To move it: git rev-parse of the new release commit on main, pasted here.
SRCREV = "1078b30cdc387a020b591ff95b7a0483cd1e1035"
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
