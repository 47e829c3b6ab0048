# cmake --install: the programs in bin/, the host libraries in lib/, the
# command module in lib/mrset/, man pages and bash completion under share/.
# Run paths are relative ($ORIGIN), so the installed tree works wherever it
# lies and from any folder.
include(GNUInstallDirs)

set(MRSET_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/mrset)
file(RELATIVE_PATH MRSET_BIN_TO_LIB /root/${CMAKE_INSTALL_BINDIR} /root/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH MRSET_BIN_TO_MODULE /root/${CMAKE_INSTALL_BINDIR} /root/${MRSET_MODULE_DIR})
file(RELATIVE_PATH MRSET_MODULE_TO_LIB /root/${MRSET_MODULE_DIR} /root/${CMAKE_INSTALL_LIBDIR})

# The host is one shared library per area (hostlib/CMakeLists.txt); they
# find each other beside themselves.
get_property(MRSET_HOST_TARGETS DIRECTORY hostlib PROPERTY BUILDSYSTEM_TARGETS)
set(MRSET_HOST_LIBRARIES)
foreach(target IN LISTS MRSET_HOST_TARGETS)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    list(APPEND MRSET_HOST_LIBRARIES ${target})
  endif()
endforeach()

set_target_properties(mrset mrset-convert PROPERTIES INSTALL_RPATH "$ORIGIN/${MRSET_BIN_TO_LIB}")
set_target_properties(${MRSET_HOST_LIBRARIES} PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(mrset_module mrfreq_module PROPERTIES
  INSTALL_RPATH "$ORIGIN/${MRSET_MODULE_TO_LIB}")
# The program looks for the module beside itself (the build tree), then here.
target_compile_definitions(mrset_runner PRIVATE MRSET_MODULE_RELATIVE_DIR="${MRSET_BIN_TO_MODULE}")

install(TARGETS mrset mrset-convert RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ${MRSET_HOST_LIBRARIES} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS mrset_module mrfreq_module LIBRARY DESTINATION ${MRSET_MODULE_DIR})
install(FILES docs/man/mrset.1 docs/man/mrset-convert.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/completion/mrset.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME mrset)
install(FILES docs/completion/mrset.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME mrset-convert)
