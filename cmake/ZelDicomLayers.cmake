# zeldicom_layer(folder [BELOW lower-folder...] [INTERNAL header...])
#
# Makes the library zeldicom_<folder> from the folder's sources, linked to
# the layers below it and to nothing else. Static layers get a link check: a
# program that takes in every object of the layer, so a call into a higher
# layer fails the build; shared layers are linked with --no-undefined to the
# same end. Headers of the folder are installed unless listed as INTERNAL.
set(ZELDICOM_LAYER_TARGETS)
set(ZELDICOM_LAYER_CHECK_SOURCE ${CMAKE_CURRENT_LIST_DIR}/layercheck.cpp)

function(zeldicom_layer folder)
  cmake_parse_arguments(LAYER "" "" "BELOW;INTERNAL" ${ARGN})
  set(below)
  foreach(lower ${LAYER_BELOW})
    list(APPEND below ${ZELDICOM_LAYER_LINK_${lower}})
  endforeach()
  list(REMOVE_DUPLICATES below)

  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    # No library yet: the folder stands for the layers below it.
    set(ZELDICOM_LAYER_LINK_${folder} ${below} PARENT_SCOPE)
    return()
  endif()

  set(target zeldicom_${folder})
  if(ZELDICOM_SHARED)
    add_library(${target} SHARED ${sources})
    if(NOT ZELDICOM_SANITIZE AND NOT ZELDICOM_FUZZ)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
  else()
    add_library(${target} STATIC ${sources})
    add_executable(${target}_layercheck ${ZELDICOM_LAYER_CHECK_SOURCE})
    target_link_libraries(${target}_layercheck PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${target}>" ${below})
  endif()
  add_library(ZelDicom::${target} ALIAS ${target})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zeldicom>)
  target_link_libraries(${target} PUBLIC ${below})
  # Installed shared layers find the layers below them beside themselves.
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")

  file(GLOB headers ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  foreach(internal ${LAYER_INTERNAL})
    list(REMOVE_ITEM headers ${PROJECT_SOURCE_DIR}/${folder}/${internal})
  endforeach()
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zeldicom/${folder})

  set(ZELDICOM_LAYER_LINK_${folder} ${target} PARENT_SCOPE)
  set(ZELDICOM_LAYER_TARGETS ${ZELDICOM_LAYER_TARGETS} ${target} PARENT_SCOPE)
endfunction()
