################################################################################
#
# kelo-utils
#
################################################################################

KELO_UTILS_VERSION = 0.1.0
# The package is built from the tree that this folder is in. When the folder was copied out of the tree, local.mk says
# where the tree is: KELO_UTILS_OVERRIDE_SRCDIR = /path/to/kelo_utils
KELO_UTILS_SITE = $(abspath $(BR2_EXTERNAL_KELO_UTILS_PATH)/../..)
KELO_UTILS_SITE_METHOD = local
KELO_UTILS_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
KELO_UTILS_LICENSE = MIT
KELO_UTILS_LICENSE_FILES = LICENSE
KELO_UTILS_INSTALL_STAGING = YES
# In the tree itself the folder docs of the build would be that of the pages.
KELO_UTILS_SUPPORTS_IN_SOURCE_BUILD = NO
KELO_UTILS_DEPENDENCIES = sqlite
KELO_UTILS_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=MinSizeRel \
	-DKELO_BUILD_TESTS=OFF \
	-DKELO_BUILD_TOOLS=OFF

$(eval $(cmake-package))
