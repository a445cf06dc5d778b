# slt.dat in the program folder, generated from the readable table signatures.txt by the carve
# subsystem's generator. Included from data/CMakeLists.txt.
add_custom_command(OUTPUT ${KESTRIN_PROGRAM_DIR}/slt.dat
    COMMAND kestrin_sltgen ${CMAKE_SOURCE_DIR}/data/signatures.txt ${KESTRIN_PROGRAM_DIR}/slt.dat
    DEPENDS kestrin_sltgen ${CMAKE_SOURCE_DIR}/data/signatures.txt
    COMMENT "Generating slt.dat")
add_custom_target(kestrin_slt ALL DEPENDS ${KESTRIN_PROGRAM_DIR}/slt.dat)
add_dependencies(kestrin_data kestrin_slt)
install(FILES ${KESTRIN_PROGRAM_DIR}/slt.dat DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrin)
