# `make package`: a Debian package of what `make install` installs, with its library
# dependencies found by dpkg-shlibdeps, a copyright file and a changelog.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pelma)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Pelma host developers <pelma@pelma.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "synthesizer host with keyboard, MIDI and chord sequencer")
set(CPACK_PACKAGE_DESCRIPTION "Pelma hosts one LV2 instrument, its own synthesizer Pelma or any
installed LV2 instrument, and shows its editor. It plays it from an on-screen
keyboard, from MIDI (JACK, ALSA, network MIDI) and from a one-bar 16-step
chord step sequencer that records the chords you play.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Qt loads its X11 platform plug-in at run time, which dpkg-shlibdeps cannot see; lilv reads no
# plug-in as an instrument without LV2's own bundles (core.lv2 and the rest),
# which Debian 12 ships only in lv2-dev (a fresh system without it lists no instrument at all).
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, lv2-dev")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "jackd2 | pipewire-jack, fonts-dejavu-core")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The bundle goes where LV2 hosts search by default under /usr.
set(CPACK_SET_DESTDIR OFF)
include(CPack)
