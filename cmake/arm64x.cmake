# Links a DLL of an ARM64EC build (cmake/woa-llvm-mingw.cmake, WOA_ARCH=arm64ec)
# as ARM64X: one image that native ARM64 processes load as ARM64 code and
# emulated x64 processes load as ARM64EC code. Every source of the DLL and of
# the static libraries it links is compiled a second time for native ARM64, and
# lld puts both views into the one image, each with the exports of the .def file.
#
#   link_arm64x(<dll target>)

set(_arm64x_native aarch64-w64-mingw32)

# The static library targets a target links, directly or through others, and
# the system libraries (plain names) they need.
function(_arm64x_collect target out_targets out_system)
  set(targets ${${out_targets}})
  set(system ${${out_system}})
  get_target_property(links ${target} LINK_LIBRARIES)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    get_target_property(interface ${target} INTERFACE_LINK_LIBRARIES)
    list(APPEND links ${interface})
  endif()
  foreach(item IN LISTS links)
    if(NOT item OR item MATCHES "^\\$<")
      continue()
    endif()
    if(TARGET ${item})
      get_target_property(item_type ${item} TYPE)
      if(item_type STREQUAL "STATIC_LIBRARY" AND NOT item IN_LIST targets)
        list(APPEND targets ${item})
        _arm64x_collect(${item} targets system)
      endif()
    elseif(NOT item IN_LIST system)
      list(APPEND system ${item})
    endif()
  endforeach()
  set(${out_targets} ${targets} PARENT_SCOPE)
  set(${out_system} ${system} PARENT_SCOPE)
endfunction()

# <target>_arm64: the sources of <target> (the .def file aside), compiled for
# native ARM64 with <target>'s include folders, definitions and options.
function(_arm64x_native_objects target out_name)
  get_target_property(sources ${target} SOURCES)
  get_target_property(source_dir ${target} SOURCE_DIR)
  set(absolute)
  foreach(source IN LISTS sources)
    if(source MATCHES "\\.def$")
      continue()
    endif()
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${source_dir} NORMALIZE OUTPUT_VARIABLE path)
    list(APPEND absolute ${path})
  endforeach()
  set(name ${target}_arm64)
  add_library(${name} OBJECT ${absolute})
  target_include_directories(${name} PRIVATE $<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>)
  target_compile_definitions(${name} PRIVATE $<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>)
  # The later --target wins over the toolchain's ARM64EC one.
  target_compile_options(${name} PRIVATE $<TARGET_PROPERTY:${target},COMPILE_OPTIONS>
                                         --target=${_arm64x_native})
  set(${out_name} ${name} PARENT_SCOPE)
endfunction()

function(link_arm64x dll)
  set(code_targets)
  set(system_libraries)
  _arm64x_collect(${dll} code_targets system_libraries)

  set(native_objects)
  foreach(target IN ITEMS ${dll} ${code_targets})
    _arm64x_native_objects(${target} objects)
    list(APPEND native_objects ${objects})
  endforeach()

  get_target_property(sources ${dll} SOURCES)
  get_target_property(source_dir ${dll} SOURCE_DIR)
  list(FILTER sources INCLUDE REGEX "\\.def$")
  if(NOT sources)
    message(FATAL_ERROR "${dll}: an ARM64X image takes its exports from a .def file among its sources")
  endif()
  cmake_path(ABSOLUTE_PATH sources BASE_DIRECTORY ${source_dir} NORMALIZE OUTPUT_VARIABLE def)

  # The native view's start-up code, C++ runtime, CRT and import libraries, in
  # the order the compiler driver links the ARM64EC view's; lld takes from each
  # archive the members of the view that needs them.
  set(lib ${WOA_TOOLCHAIN}/sysroot/${_arm64x_native}/lib)
  set(native_runtime ${lib}/dllcrt2.o ${lib}/crtbegin.o)
  foreach(name IN LISTS system_libraries ITEMS c++ mingw32 unwind moldname mingwex msvcrt advapi32
               shell32 user32 kernel32)
    list(APPEND native_runtime ${lib}/lib${name}.a)
  endforeach()
  list(APPEND native_runtime
       ${WOA_TOOLCHAIN}/resource/lib/aarch64-w64-windows-gnu/libclang_rt.builtins.a ${lib}/crtend.o)
  foreach(file IN LISTS native_runtime)
    if(NOT EXISTS ${file})
      message(FATAL_ERROR "${dll}: the native ARM64 view needs ${file}, which the toolchain lacks")
    endif()
  endforeach()

  # The last -m wins over the driver's arm64ecpe.
  target_link_options(${dll} PRIVATE LINKER:-m,arm64xpe LINKER:--Xlink=-defarm64native:${def})
  target_link_libraries(${dll} PRIVATE ${native_objects} ${native_runtime})
  set_property(TARGET ${dll} APPEND PROPERTY LINK_DEPENDS ${def})
endfunction()
