# Run by CPack on the staged packages: what the system looks for goes from /opt/kelvo to where Debian
# expects it.

# Moves what there is of a place below share/.
function(move_shared stage from to)
  set(old ${stage}/opt/kelvo/share/${from})
  if(EXISTS ${old})
    get_filename_component(parent ${stage}/usr/share/${to} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(RENAME ${old} ${stage}/usr/share/${to})
  endif()
endfunction()

# The files that Debian wants of each package, and its program in the path.
function(finish package stage program)
  foreach(place
      man
      bash-completion/completions
      fish/vendor_completions.d
      applications
      icons
      metainfo)
    move_shared(${stage} ${place} ${place})
  endforeach()
  move_shared(${stage} zsh/site-functions zsh/vendor-completions)
  file(REMOVE_RECURSE ${stage}/opt/kelvo/share)  # its empty folders

  # The form that Debian's tools read; what has changed stands in CHANGELOG.md.
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(changelog ${stage}/usr/share/doc/${package}/changelog)
  file(WRITE ${changelog} "${package} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}: see CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  file(GLOB pages ${stage}/usr/share/man/man1/*.1)
  execute_process(COMMAND gzip -9n ${pages} ${changelog}
                  COMMAND_ERROR_IS_FATAL ANY)
  file(MAKE_DIRECTORY ${stage}/usr/bin)

  # The umask of whoever builds the package is no matter of who installs it.
  set(everyone OWNER_READ GROUP_READ WORLD_READ)
  file(CHMOD_RECURSE ${stage}/opt ${stage}/usr
       DIRECTORY_PERMISSIONS ${everyone} OWNER_WRITE OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
  file(CHMOD_RECURSE ${stage}/usr/share FILE_PERMISSIONS ${everyone} OWNER_WRITE)

  file(CREATE_LINK /opt/kelvo/bin/${program} ${stage}/usr/bin/${program} SYMBOLIC)
endfunction()

set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(doc ${stage}/Unspecified/usr/share/doc/kelvo-schedule)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/../README.md ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md
     DESTINATION ${doc})
file(COPY ${CMAKE_CURRENT_LIST_DIR}/../doc/ DESTINATION ${doc}/doc PATTERN "*.1" EXCLUDE
     REGEX "/images/[^/]*\\.(cpp|txt)$" EXCLUDE)  # what makes the pictures
finish(kelvo-schedule ${stage}/Unspecified zojob)
if(EXISTS ${stage}/window)
  finish(kelvo-schedule-window ${stage}/window zojob-window)
endif()
