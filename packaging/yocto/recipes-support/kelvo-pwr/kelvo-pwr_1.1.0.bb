SUMMARY = "Keeps a battery-backed board alive and its data whole"
DESCRIPTION = "Watches AC power and backup battery through four GPIO lines, tests the battery, \
and shuts the system down when both run out."
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=de069b548023a05b4fcaf21f0e28c38a"

# The checkout that this layer is part of. For sources of your own, put SRC_URI and its
# sha256sum in the place of these lines.
inherit externalsrc
EXTERNALSRC = "${THISDIR}/../../../.."
# Nothing is written into it.
EXTERNALSRC_SYMLINKS = ""

DEPENDS = "boost libgpiod"

inherit cmake pkgconfig systemd bash-completion

# The class chooses no type, and part of the hardening is for optimised builds alone.
EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF \
    -DKELVO_SYSTEM_SHUTDOWN=${systemd_unitdir}/system-shutdown"

do_install:append() {
    install -D -m 0644 ${S}/packaging/kelvo-pwr.conf ${D}${sysconfdir}/kelvo/kelvo-pwr.conf
    install -d -m 0755 ${D}${localstatedir}/lib/kelvo-pwr
    install -d ${D}${systemd_system_unitdir}
    install -m 0644 ${S}/packaging/systemd/kelvo-pwr.service \
        ${S}/packaging/systemd/kelvo-pwr-test.service \
        ${S}/packaging/systemd/kelvo-pwr-test.timer \
        ${S}/packaging/systemd/kelvo-pwr-watch.service \
        ${S}/packaging/systemd/kelvo-pwr-watch.timer ${D}${systemd_system_unitdir}
    install -D -m 0644 ${S}/packaging/systemd/kelvo-pwr.tmpfiles \
        ${D}${nonarch_libdir}/tmpfiles.d/kelvo-pwr.conf
}

CONFFILES:${PN} = "${sysconfdir}/kelvo/kelvo-pwr.conf"
SYSTEMD_SERVICE:${PN} = "kelvo-pwr.service kelvo-pwr-watch.timer"
FILES:${PN} += "${systemd_unitdir} ${nonarch_libdir}/tmpfiles.d ${datadir}/zsh"
