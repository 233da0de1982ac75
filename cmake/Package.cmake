# A Debian package of the installed tree, made by script/package. The tree itself lies under
# /opt/kelvo, as it would under any prefix; DebianLayout.cmake puts what the system looks for where
# it looks.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelvo-schedule)
set(CPACK_PACKAGE_CONTACT "Kelvo Schedule developers <kelvo-schedule@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /opt/kelvo)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianLayout.cmake)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Queues shell command lines per user and runs them one at a time in the
background. The queue survives the application that filled it. Holds the
command zojob, the job server, and the libraries with their headers.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_DEPENDS procps)  # "ps xj" finds the processes of a job that is killed

include(CPack)
