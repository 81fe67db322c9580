################################################################################
#
# tessel
#
################################################################################

TESSEL_VERSION = @VERSION@
TESSEL_SITE = https://downloads.example.org/tessel
TESSEL_LICENSE = GPL-3.0+
TESSEL_LICENSE_FILES = COPYING
TESSEL_DEPENDENCIES = readline

ifeq ($(BR2_PACKAGE_TESSEL_STATIC),y)
TESSEL_CONF_OPTS = -DTESSEL_STATIC=ON
else
TESSEL_CONF_OPTS = -DTESSEL_STATIC_CXX=OFF
endif

define TESSEL_ADD_TO_SHELLS
	grep -qsxF /usr/bin/tessel $(TARGET_DIR)/etc/shells || \
		echo /usr/bin/tessel >> $(TARGET_DIR)/etc/shells
endef
TESSEL_TARGET_FINALIZE_HOOKS += TESSEL_ADD_TO_SHELLS

$(eval $(cmake-package))
