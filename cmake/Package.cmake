# Debian packages of the installed tree, made by script/package: one, and one for the window. The tree itself lies under
# /opt/kelvo, as it would under any prefix; DebianLayout.cmake puts what the system looks for where
# it looks.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelvo-schedule)
set(CPACK_PACKAGE_CONTACT "Kelvo Schedule developers <kelvo-schedule@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /opt/kelvo)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianLayout.cmake)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL Unspecified)
if(KELVO_WINDOW)
  list(APPEND CPACK_COMPONENTS_ALL window)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME kelvo-schedule)
set(CPACK_DEBIAN_WINDOW_PACKAGE_NAME kelvo-schedule-window)
set(CPACK_DEBIAN_WINDOW_PACKAGE_DEPENDS "kelvo-schedule (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_WINDOW_DESCRIPTION
"The queue of batch jobs in a window
 Shows what runs and what it prints, what waits, what failed, and how the day
 went. Holds the program zojob-window, and the same panel as a library for Qt
 applications.")
set(CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION
"Queues shell command lines per user and runs them one at a time in the
background. The queue survives the application that filled it. Holds the
command zojob, the job server, and the libraries with their headers.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_DEPENDS procps)  # "ps xj" finds the processes of a job that is killed

include(CPack)
