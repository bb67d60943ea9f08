# `make package`: three Debian packages, the tool (krt-cli), the controller
# simulator (krt-cli-sim), so that a host that manages real controllers never
# carries the simulator, and the Prometheus metrics (krt-cli-metrics), which
# bring Python along only where they are wanted; and a plain tarball of the
# program and its manual page for ESXi hosts, which install no Debian
# packages. (The Ansible collection's tarball is built by ansible-galaxy.)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_NAME krt-cli)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "The krt_cli developers")
set(CPACK_PACKAGE_CONTACT "krt_cli maintainers <krt-cli@example.org>")
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_IGNORE_FILES "/build.*/;/\\\\.git/")

# The generators package different components; the project file chooses.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/CPackGenerators.cmake)
file(WRITE ${CPACK_PROJECT_CONFIG_FILE} [=[
if(CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_COMPONENTS_ALL esxi)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_PACKAGE_FILE_NAME "${CPACK_ARCHIVE_ESXI_FILE_NAME}")
else()
  set(CPACK_COMPONENTS_ALL cli sim metrics)
endif()
]=])

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The dependencies are what the binaries link: the C library alone for the
# tool, whose line editing and C++ runtime are linked in.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_CLI_PACKAGE_NAME krt-cli)
set(CPACK_DEBIAN_SIM_PACKAGE_NAME krt-cli-sim)
set(CPACK_DEBIAN_CLI_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SIM_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_METRICS_PACKAGE_NAME krt-cli-metrics)
set(CPACK_DEBIAN_METRICS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_METRICS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_METRICS_PACKAGE_DEPENDS "krt-cli (= ${PROJECT_VERSION}), python3, python3-prometheus-client")
set(CPACK_DEBIAN_METRICS_PACKAGE_SUGGESTS "prometheus-node-exporter")
set(CPACK_DEBIAN_CLI_DESCRIPTION
    "manage PCIe NVMe RAID controllers
krt_cli shows NVMe RAID controllers, their back-end SSDs, the virtual disks
built from them and the namespaces they expose; creates and deletes virtual
disks and namespaces; runs initialization, media patrol and rebuild; reads
event and debug logs; updates controller and SSD firmware; and shows SMART
and identify data. It works as a one-shot command or as an interactive
shell.")
set(CPACK_DEBIAN_SIM_DESCRIPTION
    "simulated NVMe RAID controllers for krt_cli
krtsim emulates the host's management library, the NVMe driver and one or
more NVMe RAID controllers with their SSDs, so that every krt_cli command
can be tried and tested without the hardware: krtsim exec -- krt_cli ...")
set(CPACK_DEBIAN_METRICS_DESCRIPTION
    "Prometheus metrics of NVMe RAID controllers
krt-metrics runs krt_cli and writes the state of every controller in the
Prometheus text format, for node_exporter's textfile collector: virtual and
physical disk states, background-activity progress, SSD temperature, SMART
critical warnings and wear. Example alerting rules and a systemd service and
timer are in /usr/share/doc/krt-cli-metrics/examples.")

set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_ARCHIVE_ESXI_FILE_NAME krt-cli-${PROJECT_VERSION}-esxi)

include(CPack)
