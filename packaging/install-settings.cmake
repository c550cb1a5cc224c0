# Installs the settings into the directory. A file or link that is there already may be an
# administrator's: it stays, and new settings that differ go beside it.
set(new ${CMAKE_CURRENT_LIST_DIR}/quorbin.ini)
set(present $ENV{DESTDIR}${directory}/quorbin.ini)
set(name quorbin.ini)
if(EXISTS ${present} OR IS_SYMLINK ${present})
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${present} ${new} RESULT_VARIABLE differs
    ERROR_QUIET)
  if(NOT differs)
    return()
  endif()
  set(name quorbin.ini.new)
  message(STATUS "Kept: ${present}")
endif()
file(INSTALL DESTINATION ${directory} TYPE FILE FILES ${new} RENAME ${name})
