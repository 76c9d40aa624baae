################################################################################
#
# kelvo-pwr
#
################################################################################

KELVO_PWR_VERSION = 1.1.0
# The checkout that this tree is part of. For sources of your own, give their
# place here and their hash in kelvo-pwr.hash, and remove the method.
KELVO_PWR_SITE = $(BR2_EXTERNAL_KELVO_PATH)/../..
KELVO_PWR_SITE_METHOD = local
KELVO_PWR_LICENSE = MIT
KELVO_PWR_LICENSE_FILES = LICENSE
KELVO_PWR_DEPENDENCIES = host-pkgconf boost \
	$(if $(BR2_PACKAGE_LIBGPIOD2),libgpiod2,libgpiod)
KELVO_PWR_CONF_OPTS = -DBUILD_TESTING=OFF

define KELVO_PWR_INSTALL_CONFIGURATION
	$(INSTALL) -D -m 0644 $(@D)/packaging/kelvo-pwr.conf \
		$(TARGET_DIR)/etc/kelvo/kelvo-pwr.conf
	$(INSTALL) -d -m 0755 $(TARGET_DIR)/var/lib/kelvo-pwr
endef
KELVO_PWR_POST_INSTALL_TARGET_HOOKS += KELVO_PWR_INSTALL_CONFIGURATION

define KELVO_PWR_INSTALL_INIT_SYSTEMD
	$(INSTALL) -d -m 0755 $(TARGET_DIR)/usr/lib/systemd/system
	$(INSTALL) -m 0644 $(@D)/packaging/systemd/kelvo-pwr.service \
		$(@D)/packaging/systemd/kelvo-pwr-test.service \
		$(@D)/packaging/systemd/kelvo-pwr-test.timer \
		$(@D)/packaging/systemd/kelvo-pwr-watch.service \
		$(@D)/packaging/systemd/kelvo-pwr-watch.timer \
		$(TARGET_DIR)/usr/lib/systemd/system
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/kelvo-pwr.tmpfiles \
		$(TARGET_DIR)/usr/lib/tmpfiles.d/kelvo-pwr.conf
	$(INSTALL) -D -m 0644 $(KELVO_PWR_PKGDIR)/50-kelvo-pwr.preset \
		$(TARGET_DIR)/usr/lib/systemd/system-preset/50-kelvo-pwr.preset
endef

$(eval $(cmake-package))
