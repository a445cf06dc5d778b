# slt.dat in the program folder, generated from the readable table signatures.txt by the carve
# subsystem's generator. Included from data/CMakeLists.txt.
if(TARGET kestrin_sltgen)
    add_custom_command(OUTPUT ${KESTRIN_PROGRAM_DIR}/slt.dat
        COMMAND kestrin_sltgen ${CMAKE_SOURCE_DIR}/data/signatures.txt ${KESTRIN_PROGRAM_DIR}/slt.dat
        DEPENDS kestrin_sltgen ${CMAKE_SOURCE_DIR}/data/signatures.txt
        COMMENT "Generating slt.dat")
    add_custom_target(kestrin_slt ALL DEPENDS ${KESTRIN_PROGRAM_DIR}/slt.dat)
    if(TARGET kestrin_data)
        add_dependencies(kestrin_data kestrin_slt)
    endif()
    install(FILES ${KESTRIN_PROGRAM_DIR}/slt.dat DESTINATION .)
endif()
