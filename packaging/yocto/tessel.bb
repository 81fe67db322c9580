SUMMARY = "Console configuration shell of a telephony gateway"
DESCRIPTION = "The administration of a telephony gateway at its console: list, print, change and save \
settings, back up, restore and read logs."
HOMEPAGE = "https://tessel.example.org/"
LICENSE = "GPL-3.0-or-later"
LIC_FILES_CHKSUM = "file://COPYING;md5=@COPYING_MD5@"

SRC_URI = "https://downloads.example.org/tessel/tessel-${PV}.tar.gz"
SRC_URI[sha256sum] = "@ARCHIVE_SHA256@"

DEPENDS = "readline"
inherit cmake

PACKAGECONFIG ??= ""
PACKAGECONFIG[static] = "-DTESSEL_STATIC=ON,-DTESSEL_STATIC_CXX=OFF,ncurses"

# base-files brings /etc/shells.
RDEPENDS:${PN} = "base-files ncurses-terminfo-base"
RRECOMMENDS:${PN} = "wget"

pkg_postinst:${PN} () {
    grep -qsxF ${bindir}/tessel $D${sysconfdir}/shells || echo ${bindir}/tessel >> $D${sysconfdir}/shells
}
pkg_postrm:${PN} () {
    sed -i '\,^${bindir}/tessel$,d' $D${sysconfdir}/shells
}
