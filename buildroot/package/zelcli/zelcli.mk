################################################################################
#
# zelcli
#
################################################################################

ZELCLI_VERSION = 0.1.0
ZELCLI_SITE = https://git.c-seed-8922eda5.example/zelcli.git
ZELCLI_SITE_METHOD = git
ZELCLI_LICENSE = MIT
ZELCLI_LICENSE_FILES = LICENSE
ZELCLI_INSTALL_STAGING = YES

ifeq ($(BR2_PACKAGE_ZELCLI_EXAMPLES),y)
ZELCLI_CONF_OPTS += -DZELCLI_BUILD_EXAMPLES=ON
else
ZELCLI_CONF_OPTS += -DZELCLI_BUILD_EXAMPLES=OFF
endif

$(eval $(cmake-package))
