################################################################################
#
# cli
#
################################################################################

CLI_VERSION = 1.0
CLI_SITE = $(call qstrip,$(BR2_PACKAGE_CLI_SITE))
CLI_SITE_METHOD = local
CLI_LICENSE = Proprietary
CLI_INSTALL_STAGING = NO
CLI_DEPENDENCIES = plm7140-driver
CLI_CONF_OPTS = \
	-DCLI_VENDOR_DRIVER=$(call qstrip,$(BR2_PACKAGE_CLI_VENDOR_DRIVER))

$(eval $(cmake-package))
