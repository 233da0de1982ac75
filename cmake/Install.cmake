# The installed tree: bin, lib, include, the CMake package and the pkg-config files. Paths inside are
# relative, so that the tree can be moved as a whole.
include(CMakePackageConfigHelpers)

install(TARGETS utlib schedule EXPORT KelvoSchedule LIBRARY DESTINATION lib)
install(TARGETS start RUNTIME DESTINATION bin)
install(FILES ${PROJECT_SOURCE_DIR}/doc/start.1 DESTINATION share/man/man1)
if(KELVO_ZOJOB)
  install(TARGETS zojob RUNTIME DESTINATION bin)
endif()

# What a host application may include. Other headers belong to the libraries' own sources.
set(utlib_headers
  UtDArray.h UtDirectory.h UtEnvironment.h UtExport.h UtFilename.h UtHandle.h UtMemory.h
  UtServerSocket.h UtSocket.h UtString.h UtStringTokenizer.h UtTmpDir.h)
set(schedule_headers ZoExport.h ZoJob.h ZoJobList.h ZoJobServer.h ZoSchedule.h)

foreach(library utlib schedule)
  list(TRANSFORM ${library}_headers PREPEND ${PROJECT_SOURCE_DIR}/${library}/)
  install(FILES ${${library}_headers} DESTINATION include/${library})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in
                 ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION lib/pkgconfig)
endforeach()

set(KELVO_PACKAGE_DIR lib/cmake/KelvoSchedule)
install(EXPORT KelvoSchedule NAMESPACE Kelvo:: DESTINATION ${KELVO_PACKAGE_DIR}
        FILE KelvoScheduleTargets.cmake)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KelvoScheduleConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KelvoScheduleConfig.cmake INSTALL_DESTINATION ${KELVO_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KelvoScheduleConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KelvoScheduleConfig.cmake
              ${PROJECT_BINARY_DIR}/KelvoScheduleConfigVersion.cmake
        DESTINATION ${KELVO_PACKAGE_DIR})
