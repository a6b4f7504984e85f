################################################################################
#
# zelcli
#
################################################################################

ZELCLI_VERSION = 0.1.0

# The checkout this tree lives in, as it stands: nothing is downloaded, so
# there is no archive to hash. The build trees of a developer's build/ are
# left out of the copy.
ZELCLI_SITE = $(BR2_EXTERNAL_ZELCLI_PATH)/..
ZELCLI_SITE_METHOD = local
ZELCLI_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build

ZELCLI_LICENSE = MIT
ZELCLI_LICENSE_FILES = LICENSE
ZELCLI_INSTALL_STAGING = YES

ifeq ($(BR2_PACKAGE_ZELCLI_EXAMPLES),y)
ZELCLI_CONF_OPTS += -DZELCLI_BUILD_EXAMPLES=ON
else
ZELCLI_CONF_OPTS += -DZELCLI_BUILD_EXAMPLES=OFF
endif

$(eval $(cmake-package))
