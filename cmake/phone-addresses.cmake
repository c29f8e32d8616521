# Which service addresses a phone build may carry: an absolute http(s) URL ending in "/", and, in a package for
# people, none that only reaches the phone itself.

# Sets OUT to why URL cannot be a base address ("" when it can), and LOOPBACK_OUT to whether its host is the phone.
function(qv_service_address_problem out loopback_out url)
  set(problem "")
  set(loopback OFF)
  if(url STREQUAL "")
    set(problem "is empty")
  elseif(NOT url MATCHES "^[Hh][Tt][Tt][Pp][Ss]?://([A-Za-z0-9.-]+|\\[[0-9A-Fa-f:.]+\\])(:[0-9]+)?(/[^?# \t]*)?$")
    set(problem "is not an absolute http or https URL without spaces, query or fragment")
  elseif(NOT url MATCHES "/$")
    set(problem "does not end in \"/\"")
  else()
    string(REGEX MATCH "^[Hh][Tt][Tt][Pp][Ss]?://([A-Za-z0-9.-]+|\\[[0-9A-Fa-f:.]+\\])" authority "${url}")
    string(TOLOWER "${CMAKE_MATCH_1}" host)
    if(host MATCHES "^127\\.|^localhost$|\\.localhost$|^\\[::1\\]$|^0\\.0\\.0\\.0$")
      set(loopback ON)
    endif()
  endif()
  set(${out} "${problem}" PARENT_SCOPE)
  set(${loopback_out} ${loopback} PARENT_SCOPE)
endfunction()

# Stops configure when the address in the cache variable NAME cannot serve: never when it is no URL, and in a package
# build (REFUSE_LOOPBACK) when it is loopback, unless the builder asked for that with QV_ALLOW_LOOPBACK.
function(qv_check_phone_address name refuse_loopback)
  qv_service_address_problem(problem loopback "${${name}}")
  if(NOT problem STREQUAL "")
    message(FATAL_ERROR "${name} \"${${name}}\" ${problem}; pass one: make package ${name}=https://…/")
  endif()
  if(loopback AND refuse_loopback AND NOT QV_ALLOW_LOOPBACK)
    message(FATAL_ERROR "${name} is ${${name}}, which only reaches the phone itself: a package for people needs the "
                        "service's real address (make package ${name}=https://…/), or QV_ALLOW_LOOPBACK=1 for a "
                        "device that tunnels to a service on this machine")
  endif()
endfunction()
