set(ORVEL_INSTALL_DIR usr/lib/orvel-scheduler)
set(ORVEL_PACKAGE_STAGE ${CMAKE_BINARY_DIR}/package-stage)
file(MAKE_DIRECTORY ${ORVEL_PACKAGE_STAGE})
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

foreach(link cfg=/etc/orvel-scheduler data=/var/lib/orvel-scheduler log=/var/log/orvel-scheduler
             dump=/var/lib/orvel-scheduler/dump orvelctl=../lib/orvel-scheduler/orvelctl)
  string(REPLACE "=" ";" parts ${link})
  list(GET parts 0 name)
  list(GET parts 1 target)
  file(CREATE_LINK ${target} ${ORVEL_PACKAGE_STAGE}/${name} SYMBOLIC)
endforeach()

# Debian's tools want manual pages and the changelog compressed, reproducibly.
set(ORVEL_COMPRESSED)
foreach(source packaging/OrvelSchedulerService.8 packaging/orvelctl.1 packaging/changelog)
  get_filename_component(name ${source} NAME)
  add_custom_command(OUTPUT ${ORVEL_PACKAGE_STAGE}/${name}.gz
                     COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/${source} > ${ORVEL_PACKAGE_STAGE}/${name}.gz
                     DEPENDS ${CMAKE_SOURCE_DIR}/${source})
  list(APPEND ORVEL_COMPRESSED ${ORVEL_PACKAGE_STAGE}/${name}.gz)
endforeach()
add_custom_target(package_documents ALL DEPENDS ${ORVEL_COMPRESSED})

install(TARGETS OrvelSchedulerService orvelctl RUNTIME DESTINATION ${ORVEL_INSTALL_DIR})
install(FILES ${ORVEL_PACKAGE_STAGE}/cfg ${ORVEL_PACKAGE_STAGE}/data ${ORVEL_PACKAGE_STAGE}/log
              ${ORVEL_PACKAGE_STAGE}/dump DESTINATION ${ORVEL_INSTALL_DIR})
install(FILES ${ORVEL_PACKAGE_STAGE}/orvelctl DESTINATION usr/bin)
# The packaged configuration writes the schedule health where Debian's node
# exporter reads it.
file(READ cfg/config.ini ORVEL_CONFIG)
string(REPLACE "\nTextfilePath=\n" "\nTextfilePath=/var/lib/prometheus/node-exporter/orvel_scheduler.prom\n"
       ORVEL_CONFIG "${ORVEL_CONFIG}")
file(WRITE ${ORVEL_PACKAGE_STAGE}/config.ini "${ORVEL_CONFIG}")
install(FILES ${ORVEL_PACKAGE_STAGE}/config.ini DESTINATION etc/orvel-scheduler)
install(FILES packaging/orvel-scheduler.rules.yml DESTINATION usr/share/orvel-scheduler)
install(FILES packaging/orvelctl.bash-completion DESTINATION usr/share/bash-completion/completions
        RENAME orvelctl)
install(FILES packaging/OrvelSchedulerService.service DESTINATION lib/systemd/system)
install(FILES ${ORVEL_PACKAGE_STAGE}/OrvelSchedulerService.8.gz DESTINATION usr/share/man/man8)
install(FILES ${ORVEL_PACKAGE_STAGE}/orvelctl.1.gz DESTINATION usr/share/man/man1)
install(FILES packaging/copyright ${ORVEL_PACKAGE_STAGE}/changelog.gz
        DESTINATION usr/share/doc/orvel-scheduler)

set(CPACK_PACKAGE_NAME orvel-scheduler)
set(CPACK_PACKAGE_VENDOR "Halvren Co..Ltd.")
set(CPACK_PACKAGE_CONTACT "Orvel developers <orvel@halvren.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Scheduler service of the Orvel backup suite")
# CPack puts the summary first and turns this into the extended description.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Keeps one trigger per backup plan, computes each calendar trigger's next
start time to the millisecond and has the suite's agent run the plan's job
when it comes due; fires event triggers on logon, logoff, lock and unlock;
accepts new, changed and deleted plans from the suite's other processes.

Runs as its own system user in a hardened systemd unit. Includes orvelctl,
its command-line client.")
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5sql5-sqlite, adduser")
# acl lets the service write into the node exporter's folder, which root owns.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "acl")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "prometheus-node-exporter, prometheus")
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${CMAKE_SOURCE_DIR}/packaging/conffiles;${CMAKE_SOURCE_DIR}/packaging/postinst;${CMAKE_SOURCE_DIR}/packaging/prerm;${CMAKE_SOURCE_DIR}/packaging/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
