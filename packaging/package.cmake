# Installation layout and the Debian package (CPack's DEB generator):
#   cmake --build build --target package      -> build/eventmibd_<version>_amd64.deb
# The package ships the three programs, both units, the man pages and the
# documents; it has no maintainer scripts (systemd's StateDirectory= and
# RuntimeDirectory= create everything the programs need at start).

set(MTE_PACKAGING_DIR ${CMAKE_SOURCE_DIR}/packaging)

# mte_install_unit(UNIT PROGRAM): installs packaging/UNIT with the paths of the
# prefix in force at install time (cmake --install --prefix ...). With the
# prefix /usr the unit goes to /lib/systemd/system, where Debian 12's packages
# keep theirs; with any other prefix to <prefix>/lib/systemd/system, which
# systemd also reads for /usr/local.
function(mte_install_unit unit program)
    install(CODE "
        set(unitdir \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")
        if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
            set(unitdir /lib/systemd/system)
        endif()
        file(READ \"${MTE_PACKAGING_DIR}/${unit}\" text)
        string(REPLACE \"/usr/sbin/${program}\"
               \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR}/${program}\" text \"\${text}\")
        string(REPLACE \"/usr/share/doc/eventmibd\"
               \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\" text \"\${text}\")
        file(WRITE \"${CMAKE_BINARY_DIR}/unit/${unit}\" \"\${text}\")
        file(INSTALL DESTINATION \"\${unitdir}\" TYPE FILE
             FILES \"${CMAKE_BINARY_DIR}/unit/${unit}\")
    ")
endfunction()

# Man pages and the changelog are installed compressed, without a time stamp
# (gzip -n), so that two builds of one source give the same package.
set(MTE_GZIP_OUTPUTS "")
function(mte_gzip source output)
    add_custom_command(OUTPUT ${output} COMMAND gzip -9nc ${source} > ${output}
                       DEPENDS ${source} VERBATIM)
    set(MTE_GZIP_OUTPUTS ${MTE_GZIP_OUTPUTS} ${output} PARENT_SCOPE)
endfunction()

set(MTE_MAN_PAGES eventmibd.8 eventmib-agentx.8 eventmibctl.8)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
foreach(page ${MTE_MAN_PAGES})
    mte_gzip(${MTE_PACKAGING_DIR}/man/${page} ${CMAKE_BINARY_DIR}/man/${page}.gz)
    install(FILES ${CMAKE_BINARY_DIR}/man/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
endforeach()
mte_gzip(${MTE_PACKAGING_DIR}/changelog ${CMAKE_BINARY_DIR}/changelog.gz)
add_custom_target(mte_packaging_files ALL DEPENDS ${MTE_GZIP_OUTPUTS})

install(FILES ${CMAKE_BINARY_DIR}/changelog.gz ${MTE_PACKAGING_DIR}/copyright
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
# An example only: the operator decides whether snmpd gets it.
install(FILES ${MTE_PACKAGING_DIR}/snmpd-eventmib.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The package. Dependencies come from dpkg-shlibdeps on the installed
# programs, so they carry Debian's library package names and versions.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME eventmibd)
# A placeholder until the project names its maintainer (packaging/changelog
# carries the same address).
set(CPACK_PACKAGE_CONTACT "eventmibd developers <eventmibd@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Event MIB (RFC 2981) event-monitoring daemon")
# CPack writes the summary as the synopsis, indents these lines and turns the
# empty line into the paragraph mark " .".
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "eventmibd samples objects through the device's own SNMP agent, tests them
against the configured existence, boolean and threshold triggers, and sends
notifications or sets objects when a test fires. Its configuration arrives
through SNMP and is kept in its own database.

The package holds the daemon, its AgentX bridge eventmib-agentx (which serves
the Event MIB through snmpd and relays the daemon's notifications) and the
operators' client eventmibctl.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS snmpd)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
# The units are installed with the install-time prefix written into them: the
# package is staged with the prefix /usr and DESTDIR, not a staging prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
