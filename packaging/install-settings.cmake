# Installs the settings into the directory. A file that is there already may be an administrator's: it
# stays, and the new one goes beside it.
set(new ${CMAKE_CURRENT_LIST_DIR}/quorbin.ini)
set(present $ENV{DESTDIR}${directory}/quorbin.ini)
set(name quorbin.ini)
if(EXISTS ${present})
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${present} ${new} RESULT_VARIABLE differs
    ERROR_QUIET)
  if(differs)
    set(name quorbin.ini.new)
    message(STATUS "Kept: ${present}")
  endif()
endif()
file(INSTALL DESTINATION ${directory} TYPE FILE FILES ${new} RENAME ${name})
