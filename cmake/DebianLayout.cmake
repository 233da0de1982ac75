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

file(GLOB pages ${stage}/usr/share/man/man1/*.1)
execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)

file(MAKE_DIRECTORY ${stage}/usr/bin)
file(CREATE_LINK ../../opt/kelvo/bin/zojob ${stage}/usr/bin/zojob SYMBOLIC)
