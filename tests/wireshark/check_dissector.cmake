# The Wireshark dissector (tools/wireshark/zanvrrp.lua) reads captures as the simulator's decoder
# does: capture some conformance scripts and the crafted bodies of bodies.zvs with
# `zanvrrp-sim script --pcap`, and a run of the live simulation, print every packet's fields with tshark and with
# `zanvrrp-sim pcap-fields`, and compare the two line by line. Prints "tshark is not installed"
# (CTest's skip pattern) and passes when there is no tshark.
#
# cmake -DSIM=<zanvrrp-sim> [-DEMU=<emulator|args>] -DSRC=<source dir> -DWORK=<scratch dir>
#       -P check_dissector.cmake
if(NOT SIM OR NOT SRC OR NOT WORK)
  message(FATAL_ERROR "usage: cmake -DSIM=<zanvrrp-sim> [-DEMU=<emulator>] -DSRC=<source dir> -DWORK=<dir> "
                      "-P check_dissector.cmake")
endif()

find_program(TSHARK tshark)
if(NOT TSHARK)
  message("SKIPPED: tshark is not installed (scripts/deps.sh installs it)")
  return()
endif()

# Conformance scripts with every body kind (items, records of the three types, parts, events),
# and messages the decoder calls malformed (short, bad lengths, unknown and cut records).
set(scripts sub_limit sub_exchange batch_sequence update_records prod_batch prod_realtime notify_event
    receive_dispatch diagnostics)
# The fields in the order of `zanvrrp-sim pcap-fields`.
set(fields zanvrrp.sender zanvrrp.receiver zanvrrp.msglen zanvrrp.flags zanvrrp.flags.ack zanvrrp.msgtype
    zanvrrp.transid zanvrrp.hdrword8 zanvrrp.hdrword10 zanvrrp.seqnum zanvrrp.hdrword16 zanvrrp.entrycnt
    zanvrrp.elements zanvrrp.key zanvrrp.malformed)
set(lua ${SRC}/tools/wireshark/zanvrrp.lua)
string(REPLACE "|" ";" emu "${EMU}")

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/home)
# tshark reads no personal configuration (a copy of the dissector among the personal plugins
# would be registered twice): its home is an empty folder.
set(ENV{HOME} ${WORK}/home)
set(ENV{XDG_CONFIG_HOME} ${WORK}/home)

set(field_args "")
foreach(f ${fields})
  list(APPEND field_args -e ${f})
endforeach()

# Lines of a file as a list. Square brackets and semicolons would bend CMake's list splitting;
# they are shown as < > and , (in both files alike).
function(read_lines file out)
  file(READ ${file} text)
  string(REPLACE ";" "," text "${text}")
  string(REPLACE "[" "<" text "${text}")
  string(REPLACE "]" ">" text "${text}")
  string(REGEX REPLACE "\n$" "" text "${text}")
  string(REPLACE "\n" ";" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Compares the lines of two files; fails naming the first line that differs. WANT and GOT name
# the two sources, UNIT what a line is.
function(compare_lines what want_file got_file)
  cmake_parse_arguments(arg "" "WANT;GOT;UNIT" "" ${ARGN})
  if(NOT arg_WANT)
    set(arg_WANT pcap-fields)
    set(arg_GOT tshark)
    set(arg_UNIT "packet")
  endif()
  read_lines(${want_file} want)
  read_lines(${got_file} got)
  list(LENGTH want nwant)
  list(LENGTH got ngot)
  if(nwant EQUAL 0)
    message(FATAL_ERROR "${what}: ${arg_WANT} has nothing")
  endif()
  set(i 0)
  while(i LESS nwant AND i LESS ngot)
    list(GET want ${i} w)
    list(GET got ${i} g)
    if(NOT w STREQUAL g)
      math(EXPR n "${i} + 1")
      string(REPLACE "\t" " | " w "${w}")
      string(REPLACE "\t" " | " g "${g}")
      message(FATAL_ERROR "${what}: ${arg_UNIT} ${n} differs\n  ${arg_WANT}: ${w}\n  ${arg_GOT}: ${g}")
    endif()
    math(EXPR i "${i} + 1")
  endwhile()
  if(NOT nwant EQUAL ngot)
    message(FATAL_ERROR "${what}: ${arg_WANT} has ${nwant} ${arg_UNIT}s, ${arg_GOT} ${ngot}")
  endif()
  message("${what}: ${nwant} ${arg_UNIT}s alike")
endfunction()

# One capture: zanvrrp-sim ARGS... --pcap FILE, then both readers, then the comparison.
function(check_capture name)
  set(pcap ${WORK}/${name}.pcap)
  execute_process(COMMAND ${emu} ${SIM} ${ARGN} --pcap ${pcap}
                  OUTPUT_VARIABLE out ERROR_VARIABLE out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${name}: zanvrrp-sim ${ARGN} failed (${rc}):\n${out}")
  endif()
  execute_process(COMMAND ${emu} ${SIM} pcap-fields ${pcap} OUTPUT_FILE ${WORK}/${name}.want
                  ERROR_VARIABLE err RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${name}: zanvrrp-sim pcap-fields failed (${rc}): ${err}")
  endif()

  execute_process(COMMAND ${TSHARK} -n -r ${pcap} -X lua_script:${lua} -T fields -E separator=/t
                          -E aggregator=, -E occurrence=a ${field_args}
                  OUTPUT_FILE ${WORK}/${name}.tshark ERROR_VARIABLE err RESULT_VARIABLE rc)
  # tshark warns on stderr when run as root; anything else there (a Lua error) fails.
  string(REGEX REPLACE "Running as user \"[^\"]*\" and group \"[^\"]*\"\\. This could be dangerous\\.\n?" ""
         err "${err}")
  if(NOT rc EQUAL 0 OR NOT err STREQUAL "")
    message(FATAL_ERROR "${name}: tshark failed (${rc}): ${err}")
  endif()

  # tshark prints an empty byte string as "<MISSING>" where pcap-fields prints nothing: the one
  # difference in form, undone in the key column only.
  file(STRINGS ${WORK}/${name}.tshark lines)
  set(norm "")
  foreach(line ${lines})
    if(line MATCHES "^(.*\t)([^\t]*)(\t[^\t]*)$")
      set(head "${CMAKE_MATCH_1}")
      set(keys ",${CMAKE_MATCH_2},")
      set(tail "${CMAKE_MATCH_3}")
      string(REPLACE ",<MISSING>," ",," keys "${keys}")
      string(REPLACE ",<MISSING>," ",," keys "${keys}")
      string(REGEX REPLACE "^,(.*),$" "\\1" keys "${keys}")
      set(line "${head}${keys}${tail}")
    endif()
    string(APPEND norm "${line}\n")
  endforeach()
  file(WRITE ${WORK}/${name}.got "${norm}")
  compare_lines(${name} ${WORK}/${name}.want ${WORK}/${name}.got)

  # The dissector never fails on what it reads: no Lua error, no exception. (Its own marks of a
  # malformed message are expert infos of the malformed group, which _ws.malformed also matches.)
  execute_process(COMMAND ${TSHARK} -n -r ${pcap} -X lua_script:${lua}
                          -Y "_ws.lua.error || _ws.malformed.expert || _ws.malformed.dissector_bug"
                          -T fields -e frame.number
                  OUTPUT_VARIABLE bad ERROR_VARIABLE err RESULT_VARIABLE rc)
  string(STRIP "${bad}" bad)
  string(REPLACE "\n" " " bad "${bad}")
  if(NOT rc EQUAL 0 OR NOT bad STREQUAL "")
    message(FATAL_ERROR "${name}: the dissector raised an error in packets ${bad} (${rc}) ${err}")
  endif()
endfunction()

# The dissector must be loaded at all: Wireshark can refuse Lua scripts when run as root.
execute_process(COMMAND ${TSHARK} -G protocols -X lua_script:${lua} OUTPUT_VARIABLE protos ERROR_VARIABLE err)
if(NOT protos MATCHES "\tzanvrrp\n")
  message(FATAL_ERROR "tshark did not load ${lua}: ${err}\n(as root, Lua scripts need "
                      "run_user_scripts_when_superuser = true in Wireshark's init.lua, Debian's default)")
endif()

set(files "")
foreach(s ${scripts})
  list(APPEND files ${SRC}/tests/scripts/${s}.zvs)
endforeach()
check_capture(scripts script ${files})
check_capture(bodies script ${SRC}/tests/wireshark/bodies.zvs)
# The live simulation's traffic: batches of several BUData, notify events, restarts.
check_capture(simulation run --duration 40 --seed 5 --items 100 --parts 200 --loss 0.1 --dup 0.05 --fc --flaps
              --work --quiet)

# The flow graph draws the ladder of an exchange: one column per pid, one arrow per message, as
# tests/wireshark/ladder.txt shows it for the capture of ladder.zvs.
set(pcap ${WORK}/ladder.pcap)
execute_process(COMMAND ${emu} ${SIM} script --pcap ${pcap} ${SRC}/tests/wireshark/ladder.zvs
                OUTPUT_VARIABLE out ERROR_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "ladder: zanvrrp-sim script failed (${rc}):\n${out}")
endif()
execute_process(COMMAND ${TSHARK} -n -r ${pcap} -X lua_script:${lua} -q -z flow,any,network
                OUTPUT_FILE ${WORK}/ladder.got ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "ladder: tshark failed (${rc}): ${err}")
endif()
compare_lines(ladder ${SRC}/tests/wireshark/ladder.txt ${WORK}/ladder.got WANT ladder.txt GOT "tshark -z flow" UNIT line)
