# Manual pages and the shells' completion files: made from what the tool says of itself, and from docs/man for the
# programs of remote connections.
set(rfm_completionDir ${PROJECT_BINARY_DIR}/completion)
add_custom_command(
  OUTPUT ${rfm_completionDir}/stamp
  COMMAND ${CMAKE_COMMAND} -E make_directory ${rfm_completionDir}
  COMMAND rfm_tool completion bash > ${rfm_completionDir}/rfm
  COMMAND rfm_tool completion zsh > ${rfm_completionDir}/_rfm
  COMMAND rfm_tool completion fish > ${rfm_completionDir}/rfm.fish
  COMMAND ${CMAKE_COMMAND} -E touch ${rfm_completionDir}/stamp
  DEPENDS rfm_tool
  COMMENT "Writing the completion files"
  VERBATIM)
add_custom_target(completion_files ALL DEPENDS ${rfm_completionDir}/stamp)
install(FILES ${rfm_completionDir}/rfm
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
install(FILES ${rfm_completionDir}/_rfm
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
install(FILES ${rfm_completionDir}/rfm.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)

find_program(RFM_SCDOC scdoc)
if(NOT RFM_SCDOC)
  message(STATUS "rfm: scdoc is not there; manual pages are left out")
  return()
endif()

set(rfm_manualSources)
foreach(page marlek.1 qlnsrv.1 qlnsrvd.8 rdsT_FileBrowsing.1 rfmT_FileAssistant.1)
  string(REGEX REPLACE "\\.[0-9]$" "" program ${page})
  if(TARGET ${program})
    list(APPEND rfm_manualSources ${PROJECT_SOURCE_DIR}/docs/man/${page}.scd)
  endif()
endforeach()
set(rfm_manualDir ${PROJECT_BINARY_DIR}/man)
set(rfm_manualScript ${PROJECT_SOURCE_DIR}/packaging/manual_pages.sh)
add_custom_command(
  OUTPUT ${rfm_manualDir}.stamp
  COMMAND ${rfm_manualScript} $<TARGET_FILE:rfm_tool> ${rfm_manualDir} ${rfm_manualSources}
  COMMAND ${CMAKE_COMMAND} -E touch ${rfm_manualDir}.stamp
  DEPENDS rfm_tool ${rfm_manualScript} ${rfm_manualSources}
  COMMENT "Writing the manual pages"
  VERBATIM)
add_custom_target(manual_pages ALL DEPENDS ${rfm_manualDir}.stamp)
foreach(component tools remote)
  install(DIRECTORY ${rfm_manualDir}/${component}/ DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT ${component})
endforeach()
