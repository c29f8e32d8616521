# Runs the phone build's address rule over a table of addresses (cmake -P); prints each mismatch and fails on any.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/phone-addresses.cmake)

# name | address | accepted | loopback
set(cases
    "public https|https://versions.example.org/|ON|OFF"
    "http with port and path|http://10.0.0.2:8080/api/|ON|OFF"
    "upper-case scheme|HTTPS://versions.example.org/|ON|OFF"
    "empty||OFF|OFF"
    "no trailing slash|https://versions.example.org|OFF|OFF"
    "path without trailing slash|https://versions.example.org/api|OFF|OFF"
    "other scheme|ftp://versions.example.org/|OFF|OFF"
    "no host|https:///|OFF|OFF"
    "query|https://versions.example.org/?a=1/|OFF|OFF"
    "space|https://versions.example.org/a b/|OFF|OFF"
    "IPv4 loopback|http://127.0.0.1:8080/|ON|ON"
    "other 127 address|http://127.1.2.3/|ON|ON"
    "localhost|http://LocalHost:8080/|ON|ON"
    "a localhost subdomain|http://api.localhost/|ON|ON"
    "IPv6 loopback|http://[::1]:8080/|ON|ON"
    "unspecified address|http://0.0.0.0/|ON|ON"
    "a host that starts with 127|https://127example.org/|ON|OFF")

set(failures 0)
foreach(entry IN LISTS cases)
  string(REPLACE "|" ";" fields "${entry}")
  list(GET fields 0 name)
  list(GET fields 1 address)
  list(GET fields 2 accepted)
  list(GET fields 3 loopback)
  qv_service_address_problem(problem found_loopback "${address}")
  if(problem STREQUAL "")
    set(found_accepted ON)
  else()
    set(found_accepted OFF)
  endif()
  if(NOT found_accepted STREQUAL accepted OR NOT found_loopback STREQUAL loopback)
    message("${name}: \"${address}\" accepted ${found_accepted} (want ${accepted}), loopback ${found_loopback} "
            "(want ${loopback}) ${problem}")
    math(EXPR failures "${failures} + 1")
  endif()
endforeach()
if(failures GREATER 0)
  message(FATAL_ERROR "${failures} address case(s) failed")
endif()
