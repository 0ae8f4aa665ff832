# Fails when a library source includes the host platform or the tools.
file(GLOB_RECURSE files ${SRC}/adp/* ${SRC}/inst/* ${SRC}/prod/* ${SRC}/innerdata/* ${SRC}/include/* ${SRC}/platform/*)
foreach(f ${files})
  file(STRINGS ${f} bad REGEX "#[ \t]*include[ \t]*[<\"].*(host/|tools/|host_world)")
  if(bad)
    message(FATAL_ERROR "${f} reaches past the platform declarations: ${bad}")
  endif()
endforeach()
message(STATUS "library includes ok")
