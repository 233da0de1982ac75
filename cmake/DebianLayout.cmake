# Run by CPack on the staged package: what the system looks for goes from /opt/kelvo to where Debian
# expects it.
set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(share ${stage}/opt/kelvo/share)

foreach(place
    man
    bash-completion/completions
    fish/vendor_completions.d)
  get_filename_component(parent ${stage}/usr/share/${place} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(RENAME ${share}/${place} ${stage}/usr/share/${place})
endforeach()
file(MAKE_DIRECTORY ${stage}/usr/share/zsh)
file(RENAME ${share}/zsh/site-functions ${stage}/usr/share/zsh/vendor-completions)
file(REMOVE_RECURSE ${share})  # its empty folders

set(doc ${stage}/usr/share/doc/kelvo-schedule)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/../README.md ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md
     DESTINATION ${doc})
file(COPY ${CMAKE_CURRENT_LIST_DIR}/../doc/ DESTINATION ${doc}/doc PATTERN "*.1" EXCLUDE)

# The form that Debian's tools read; what has changed stands in CHANGELOG.md.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(changelog ${doc}/changelog)
file(WRITE ${changelog} "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

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

file(CREATE_LINK /opt/kelvo/bin/zojob ${stage}/usr/bin/zojob SYMBOLIC)
