# What `cmake --install` puts where, the man pages made from the programs'
# own --help, and the Debian package. Included by the top CMakeLists.txt
# once the programs are defined (HNX_TOOLS).
include(GNUInstallDirs)

# `install` (and cpack) installs what is built; scripts/package builds only
# the programs and pages that go into the package, not the tests.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(HNX_PKG hnx-l3table-l3mac)
set(HNX_PKG_SRC ${CMAKE_SOURCE_DIR}/packaging)

install(TARGETS hnx-l3table-l3mac RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS ${HNX_TOOLS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# systemd's own folders sit under the prefix's lib/, not the multiarch one.
install(FILES ${HNX_PKG_SRC}/${HNX_PKG}.service DESTINATION lib/systemd/system)
install(FILES ${HNX_PKG_SRC}/${HNX_PKG}.tmpfiles DESTINATION lib/tmpfiles.d
        RENAME ${HNX_PKG}.conf)
install(FILES ${HNX_PKG_SRC}/${HNX_PKG}.sysusers DESTINATION lib/sysusers.d
        RENAME ${HNX_PKG}.conf)

install(FILES README.md docs/operations.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(GLOB HNX_EXAMPLES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.json)
install(FILES ${HNX_EXAMPLES} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
# The unit's drop-ins for a Redis store: examples, since each names a server.
install(FILES ${HNX_PKG_SRC}/redis-remote.conf ${HNX_PKG_SRC}/redis-local.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# One completion file answers for every tool; bash loads it by the name of
# the command being completed.
foreach(tool ${HNX_TOOLS})
  install(FILES ${HNX_PKG_SRC}/completion/${HNX_PKG}.bash
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions RENAME ${tool})
endforeach()

# Man pages: each tool's from its --help and --version by help2man, so that
# the page says what the program says; the daemon's, which has no --help,
# from its one source in packaging/man.
set(HNX_MAN_NAME_hnx-tbl "read and write the tables of the table store")
set(HNX_MAN_NAME_hnx-cmd "run the debug commands of a running module")
set(HNX_MAN_NAME_hnx-l3mac-check "check the L3 MAC tables of a store against each other")
set(HNX_MAN_NAME_l3mac-cover "show the TCAM cover of a VLAN or VFI set")
set(HNX_MAN_NAME_l3mac-feed "write many L3 MAC requests into the table store")
set(HNX_MAN_NAME_hnx-load "load the L3 MAC daemon and measure how it serves")
set(HNX_MAN_NAME_hnx-soak "crash-restart soak of the L3 MAC daemon")
find_program(HELP2MAN help2man)
set(HNX_MAN_DIR ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${HNX_MAN_DIR})
set(HNX_MAN_PAGES ${CMAKE_SOURCE_DIR}/packaging/man/${HNX_PKG}.8)
if(HELP2MAN)
  foreach(tool ${HNX_TOOLS})
    if(NOT DEFINED HNX_MAN_NAME_${tool})
      message(FATAL_ERROR "tool ${tool} has no man page name in cmake/install.cmake")
    endif()
    add_custom_command(
      OUTPUT ${HNX_MAN_DIR}/${tool}.1
      COMMAND ${HELP2MAN} --no-info --section=1 --source=${HNX_PKG}
              "--name=${HNX_MAN_NAME_${tool}}" --output=${HNX_MAN_DIR}/${tool}.1
              $<TARGET_FILE:${tool}>
      DEPENDS ${tool}
      COMMENT "help2man ${tool}")
    list(APPEND HNX_MAN_PAGES ${HNX_MAN_DIR}/${tool}.1)
    install(FILES ${HNX_MAN_DIR}/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
else()
  message(WARNING "no help2man: the tools' man pages are not made (scripts/setup installs it)")
endif()
add_custom_target(man ALL DEPENDS ${HNX_MAN_PAGES})
install(FILES ${CMAKE_SOURCE_DIR}/packaging/man/${HNX_PKG}.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# The Debian package. Its dependencies are the shared libraries that the
# installed programs link, found by dpkg-shlibdeps.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${HNX_PKG})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "hnx routing plane developers <routing@hnx.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "L3 MAC table manager of the switch's routing plane")
set(CPACK_PACKAGE_DESCRIPTION
    "Merges the routing features' requests for MAC addresses on VLANs and VFIs,\ncovers them with value/mask TCAM entries and publishes them for the hardware.\nIncludes the operators' tools (hnx-tbl, hnx-cmd, hnx-l3mac-check, l3mac-cover).")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${HNX_PKG_SRC}/debian/postinst ${HNX_PKG_SRC}/debian/prerm ${HNX_PKG_SRC}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
