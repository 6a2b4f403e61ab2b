# Build helpers shared by every folder: IDL compilation, DLLs with .def exports, tests under Wine.
include(GoogleTest)

# Compile and link settings of every target of ours (not GoogleTest's): linked by wincom, so
# everything that links wincom gets them.
add_library(vantrel_options INTERFACE)
target_compile_definitions(vantrel_options INTERFACE
  WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 WINVER=0x0601)
target_compile_options(vantrel_options INTERFACE -Wall -Wextra)
# No MinGW runtime DLL to ship: libgcc, libstdc++ and winpthread go in statically.
target_link_options(vantrel_options INTERFACE -static)

set(VANTREL_IDL_INCLUDE /usr/include/wine/wine/windows)
set(VANTREL_STDOLE_DIR /usr/lib/i386-linux-gnu/wine/i386-windows)
set(VANTREL_GENERATED ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${VANTREL_GENERATED})

# vantrel_idl(<target> <file.idl> [TLB]): compiles the IDL with widl into <name>.h and the GUID
# definitions <name>_i.c (a static library <target>), and with TLB also <name>.tlb.
function(vantrel_idl target idl)
  cmake_parse_arguments(I "TLB" "" "" ${ARGN})
  get_filename_component(name ${idl} NAME_WE)
  get_filename_component(idl_abs ${idl} ABSOLUTE)
  set(outputs ${VANTREL_GENERATED}/${name}.h ${VANTREL_GENERATED}/${name}_i.c)
  set(tlb_args)
  if(I_TLB)
    list(APPEND outputs ${VANTREL_GENERATED}/${name}.tlb)
    set(tlb_args -t -T ${VANTREL_GENERATED}/${name}.tlb)
  endif()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${VANTREL_WIDL} -I${VANTREL_IDL_INCLUDE} -L${VANTREL_STDOLE_DIR}
            -h -H ${VANTREL_GENERATED}/${name}.h -u -U ${VANTREL_GENERATED}/${name}_i.c ${tlb_args}
            ${idl_abs}
    DEPENDS ${idl_abs}
    COMMENT "widl ${name}.idl"
    VERBATIM)
  add_library(${target} STATIC ${VANTREL_GENERATED}/${name}_i.c ${VANTREL_GENERATED}/${name}.h)
  target_include_directories(${target} PUBLIC ${VANTREL_GENERATED})
  target_link_libraries(${target} PUBLIC ole32 oleaut32 uuid)
  if(I_TLB)
    add_custom_target(${target}_tlb DEPENDS ${VANTREL_GENERATED}/${name}.tlb)
    add_dependencies(${target} ${target}_tlb)
  endif()
endfunction()

# vantrel_dll(<target> DEF <file.def> SOURCES ... LIBS ...): a DLL that exports by plain name,
# as its .def lists them. --kill-at keeps stdcall decorations out of the export names; ld would
# then write the import library without them too, so cmake/ImportLibrary.cmake rewrites it with
# the decorated symbols found in the DLL's objects: WINAPI callers link normally.
function(vantrel_dll target)
  cmake_parse_arguments(D "" "DEF" "SOURCES;LIBS" ${ARGN})
  add_library(${target} SHARED ${D_SOURCES} ${D_DEF}
              ${PROJECT_SOURCE_DIR}/wincom/TickCount64.cpp)
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${target})
  target_link_options(${target} PRIVATE -Wl,--kill-at -Wl,--enable-stdcall-fixup -Wl,--subsystem,windows)
  target_link_libraries(${target} PRIVATE vantrel_options ${D_LIBS})
  if(D_DEF)
    get_filename_component(def_abs ${D_DEF} ABSOLUTE)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DDLLTOOL=${CMAKE_DLLTOOL} -DDEF=${def_abs}
              -DDLL_NAME=$<TARGET_FILE_NAME:${target}> -DOUTPUT=$<TARGET_LINKER_FILE:${target}>
              "-DOBJECTS=$<TARGET_OBJECTS:${target}>"
              -P ${PROJECT_SOURCE_DIR}/cmake/ImportLibrary.cmake
      VERBATIM)
  endif()
endfunction()

# Windows path of a file in the build tree, for programs run under Wine (drive Z: is /).
function(vantrel_wine_path out path)
  string(REPLACE "/" "\\" p "${path}")
  set(${out} "Z:${p}" PARENT_SCOPE)
endfunction()

# vantrel_add_test(<target> SOURCES ... [LIBS ...] [DEPENDS ...] [COM] [SCREEN] [DEPTH16]
#                  [TIMEOUT s])
# One CTest test per GoogleTest case, discovered under Wine when CTest runs.
#   COM      the test creates objects through CoCreateInstance: needs the registered DLLs.
#   SCREEN   the test draws on or grabs the virtual screen: never runs beside another one.
#   DEPTH16  runs on the harness's second display, 16 bits per pixel (implies SCREEN).
function(vantrel_add_test target)
  cmake_parse_arguments(T "COM;SCREEN;DEPTH16" "TIMEOUT" "SOURCES;LIBS;DEPENDS" ${ARGN})
  add_executable(${target} ${T_SOURCES})
  target_link_libraries(${target} PRIVATE vantrel_options gtest vantrel_testmain ${T_LIBS})
  if(T_DEPENDS)
    add_dependencies(${target} ${T_DEPENDS})
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  set(props TIMEOUT ${T_TIMEOUT} LABELS ${target})
  if(T_COM)
    list(APPEND props FIXTURES_REQUIRED com_registered)
  endif()
  if(T_SCREEN OR T_DEPTH16)
    list(APPEND props RESOURCE_LOCK screen)
  endif()
  if(T_DEPTH16)
    list(APPEND props ENVIRONMENT VANTREL_SCREEN_DEPTH=16)
  endif()
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       PROPERTIES ${props})
endfunction()

# vantrel_com_server(<target>): a DLL that the test harness registers (regsvr32) before the
# tests marked COM.
function(vantrel_com_server target)
  set_property(GLOBAL APPEND PROPERTY VANTREL_COM_SERVERS ${target})
endfunction()
