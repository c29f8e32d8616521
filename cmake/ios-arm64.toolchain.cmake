# arm64 iOS cross toolchain for Linux: Debian clang-14 + ld64.lld-14 against an extracted iPhoneOS SDK.
# cmake -S . -B build -G Ninja -DCMAKE_TOOLCHAIN_FILE=<this> [-DIOS_SDK=/path/iPhoneOS15.6.sdk]
# The SDK is found by IOS_SDK, else $SDKROOT, else $THEOS/sdks, else ~/theos/sdks.
set(CMAKE_SYSTEM_NAME iOS)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# arm64 only by default: the open-source linker cannot sign arm64e. A build with Apple's linker may pass
# -DCMAKE_OSX_ARCHITECTURES="arm64;arm64e".
if(NOT CMAKE_OSX_ARCHITECTURES)
  set(CMAKE_OSX_ARCHITECTURES arm64)
endif()
if(NOT CMAKE_OSX_DEPLOYMENT_TARGET)
  set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
endif()
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
# Full paths: languages enabled after project() would otherwise be searched for inside the SDK.
find_program(QV_CLANG clang-14 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
find_program(QV_CLANGXX clang++-14 REQUIRED NO_CMAKE_FIND_ROOT_PATH)
set(CMAKE_C_COMPILER ${QV_CLANG})
set(CMAKE_CXX_COMPILER ${QV_CLANGXX})
set(CMAKE_OBJC_COMPILER ${QV_CLANG})
set(CMAKE_OBJCXX_COMPILER ${QV_CLANGXX})
foreach(lang C CXX OBJC OBJCXX)
  # without an explicit target clang-14 on Linux ignores -arch/-miphoneos-version-min
  set(CMAKE_${lang}_COMPILER_TARGET arm64-apple-ios${CMAKE_OSX_DEPLOYMENT_TARGET})
endforeach()
# Debian clang-14 defaults to libstdc++ even for Apple targets
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++")
set(CMAKE_OBJCXX_FLAGS_INIT "-stdlib=libc++")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -stdlib=libc++ -Wl,-adhoc_codesign")
endforeach()
# CMake 3.25 copies the OBJCXX -install_name flag from OBJC; if OBJC is not an
# enabled language the dylib is linked with no -install_name at all.
set(CMAKE_SHARED_LIBRARY_SONAME_OBJC_FLAG "-install_name")
set(CMAKE_SHARED_LIBRARY_SONAME_OBJCXX_FLAG "-install_name")
set(CMAKE_AR llvm-ar-14 CACHE FILEPATH "")
set(CMAKE_RANLIB llvm-ranlib-14 CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-14 CACHE FILEPATH "")
