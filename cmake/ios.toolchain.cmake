# iOS cross toolchain for Linux: clang-22 against an extracted iPhoneOS SDK, one fat arm64 + arm64e library linked by ld64.
# cmake -S . -B build -G Ninja -DCMAKE_TOOLCHAIN_FILE=<this> [-DIOS_SDK=...] [-DLD64_PREFIX=...]
#       [-DCMAKE_OSX_ARCHITECTURES=arm64]
# The SDK is found by IOS_SDK, else $SDKROOT, else $THEOS/sdks, else ~/theos/sdks; the linker by LD64_PREFIX (or
# $LD64_PREFIX), else $THEOS/toolchain/ld64, else ~/theos/toolchain/ld64. Only ld64 links pointer-authenticated
# arm64e; an arm64-only build without it links with ld64.lld-14.
set(CMAKE_SYSTEM_NAME iOS)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# Cache entries: CMake's Darwin set-up creates empty ones that would hide plain variables, and the library would
# silently come out arm64 only.
set(CMAKE_OSX_ARCHITECTURES "arm64;arm64e" CACHE STRING "Slices of the phone library: arm64;arm64e, or arm64")
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0 CACHE STRING "Lowest iOS of the arm64 slice; arm64e starts at 14.0")

if(NOT IOS_SDK)
  if(DEFINED ENV{SDKROOT} AND NOT "$ENV{SDKROOT}" STREQUAL "")
    set(IOS_SDK "$ENV{SDKROOT}")
  elseif(DEFINED ENV{THEOS})
    set(IOS_SDK "$ENV{THEOS}/sdks/iPhoneOS15.6.sdk")
  else()
    set(IOS_SDK "$ENV{HOME}/theos/sdks/iPhoneOS15.6.sdk")
  endif()
endif()
set(IOS_SDK "${IOS_SDK}" CACHE PATH "Extracted iPhoneOS SDK")
if(NOT EXISTS "${IOS_SDK}/SDKSettings.json" AND NOT EXISTS "${IOS_SDK}/SDKSettings.plist")
  message(FATAL_ERROR "No iOS SDK at ${IOS_SDK}: set SDKROOT or THEOS, or pass -DIOS_SDK=")
endif()
set(CMAKE_OSX_SYSROOT "${IOS_SDK}")

# Not cached: the linker is looked for again at every configure, so that building it later needs no fresh build tree.
if(NOT LD64_PREFIX)
  if(DEFINED ENV{LD64_PREFIX} AND NOT "$ENV{LD64_PREFIX}" STREQUAL "")
    set(LD64_PREFIX "$ENV{LD64_PREFIX}")
  elseif(DEFINED ENV{THEOS})
    set(LD64_PREFIX "$ENV{THEOS}/toolchain/ld64")
  else()
    set(LD64_PREFIX "$ENV{HOME}/theos/toolchain/ld64")
  endif()
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES IOS_SDK LD64_PREFIX)

find_program(QV_CLANG clang-22 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
find_program(QV_CLANGXX clang++-22 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
find_program(QV_LIPO llvm-lipo-22 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
if(EXISTS "${LD64_PREFIX}/bin/ld64")
  set(qv_linker "${LD64_PREFIX}/bin/ld64")
elseif("arm64e" IN_LIST CMAKE_OSX_ARCHITECTURES)
  message(FATAL_ERROR "No arm64e linker at ${LD64_PREFIX}/bin/ld64: build it there with build-ld64 as README "
                      "\"The phone library\" says (or set LD64_PREFIX), or build arm64 only with "
                      "-DCMAKE_OSX_ARCHITECTURES=arm64")
else()
  find_program(QV_LLD ld64.lld-14 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  set(qv_linker "${QV_LLD}")
endif()
# The driver runs `ld` and `lipo` (which joins the slices) from its -B directory. Written there rather than named in
# flags, so that the linker follows the machine at every configure while the cached flags stay the same. `ld` execs
# the linker under its own name: lld picks its Mach-O flavour from that name.
set(qv_tools "${CMAKE_BINARY_DIR}/CMakeFiles/ios-tools")
file(MAKE_DIRECTORY "${qv_tools}")
file(REMOVE "${qv_tools}/ld")
file(WRITE "${qv_tools}/ld" "#!/bin/sh\nexec '${qv_linker}' \"$@\"\n")
file(CHMOD "${qv_tools}/ld" FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
     WORLD_EXECUTE)
file(CREATE_LINK "${QV_LIPO}" "${qv_tools}/lipo" SYMBOLIC)

# Full paths: languages enabled after project() would otherwise be searched for inside the SDK.
set(CMAKE_C_COMPILER ${QV_CLANG})
set(CMAKE_CXX_COMPILER ${QV_CLANGXX})
set(CMAKE_OBJC_COMPILER ${QV_CLANG})
set(CMAKE_OBJCXX_COMPILER ${QV_CLANGXX})
foreach(lang C CXX OBJC OBJCXX)
  # Without an explicit target clang on Linux ignores -arch/-miphoneos-version-min; each -arch then picks its slice,
  # and clang raises arm64e to 14.0, the first iOS of its pointer-authentication ABI.
  set(CMAKE_${lang}_COMPILER_TARGET arm64-apple-ios${CMAKE_OSX_DEPLOYMENT_TARGET})
endforeach()
# Debian's clang defaults to libstdc++ even for Apple targets.
set(CMAKE_C_FLAGS_INIT "-B${qv_tools}")
set(CMAKE_OBJC_FLAGS_INIT "-B${qv_tools}")
set(CMAKE_CXX_FLAGS_INIT "-B${qv_tools} -stdlib=libc++")
set(CMAKE_OBJCXX_FLAGS_INIT "-B${qv_tools} -stdlib=libc++")
foreach(kind EXE SHARED MODULE)
  # The linker version makes the driver describe the platform with -platform_version, which both linkers read.
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-B${qv_tools} -mlinker-version=951.9 -stdlib=libc++ -Wl,-adhoc_codesign")
endforeach()
# CMake 3.25 copies the OBJCXX -install_name flag from OBJC; if OBJC is not an
# enabled language the dylib is linked with no -install_name at all.
set(CMAKE_SHARED_LIBRARY_SONAME_OBJC_FLAG "-install_name")
set(CMAKE_SHARED_LIBRARY_SONAME_OBJCXX_FLAG "-install_name")
set(CMAKE_AR llvm-ar-22 CACHE FILEPATH "")
set(CMAKE_RANLIB llvm-ranlib-22 CACHE FILEPATH "")
set(CMAKE_LIPO ${QV_LIPO} CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-22 CACHE FILEPATH "")
