# man/man1/ferrotip.1, written by help2man from the command's own help at build
# time, so every subcommand and option is in it without hand edits; a test checks it.
find_program(FERROTIP_HELP2MAN help2man)
if(NOT FERROTIP_HELP2MAN)
  message(FATAL_ERROR "help2man not found (the man page is made with it): run scripts/install-deps.sh")
endif()

set(FERROTIP_MAN_PAGE ${PROJECT_BINARY_DIR}/man/ferrotip.1)
set(FERROTIP_MAN_SCRIPT ${PROJECT_SOURCE_DIR}/cli/man/manpage.sh)
add_custom_command(OUTPUT ${FERROTIP_MAN_PAGE}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
  COMMAND bash ${FERROTIP_MAN_SCRIPT} generate $<TARGET_FILE:ferrotip> ${FERROTIP_MAN_PAGE}
  DEPENDS ferrotip ${FERROTIP_MAN_SCRIPT}
  COMMENT "Writing the ferrotip man page from its help"
  VERBATIM)
add_custom_target(ferrotip_man ALL DEPENDS ${FERROTIP_MAN_PAGE})
install(FILES ${FERROTIP_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

if(FERROTIP_BUILD_TESTS)
  foreach(mode check self-test)
    add_test(NAME manpage.${mode}
      COMMAND bash ${FERROTIP_MAN_SCRIPT} ${mode} $<TARGET_FILE:ferrotip> ${FERROTIP_MAN_PAGE})
    set_tests_properties(manpage.${mode} PROPERTIES LABELS cli)
  endforeach()
endif()
