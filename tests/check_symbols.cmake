# The library's dynamic symbols, checked against what it may export and import.
# cmake -DNM=<nm> -DLIB=<libzan_vrrp_lib.so> -DMODE=exports|imports -P check_symbols.cmake
# exports: the functions it defines are exactly the seven application calls.
# imports: every symbol it leaves undefined is a platform operation it is meant to call (the
# framework, memory, message, tree, diagnostics and basic services, and the message service's
# delivered-size query), a function of the C standard library it formats or copies with, or a
# symbol the toolchain's own runtime supplies.
if(NOT NM OR NOT LIB OR NOT MODE MATCHES "^(exports|imports)$")
  message(FATAL_ERROR "usage: cmake -DNM=<nm> -DLIB=<shared library> -DMODE=exports|imports -P check_symbols.cmake")
endif()
if(MODE STREQUAL "exports")
  set(which --defined-only)
else()
  set(which --undefined-only)
endif()
execute_process(COMMAND ${NM} -D ${which} ${LIB} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIB}: ${err}")
endif()
string(REPLACE "\n" ";" lines "${out}")

if(MODE STREQUAL "imports")
  set(platform
      # component framework
      ZAN_CompAdp_Init ZAN_CompAdp_DeInit ZAN_CompAdp_AddInst ZAN_CompAdp_DelInst ZAN_CompAdp_FindInstByPid
      ZAN_CompAdp_ScanInstTbl ZAN_CompInst_Init ZAN_CompInst_StartWork ZAN_Frame_RegMsgProc
      ZAN_Frame_StartLoopTmr ZAN_Frame_StopTmr ZAN_SMP_RegCfgCallBack
      # memory service
      KOL_HandleInitialize KOL_HandleFinalize KOL_Malloc_F KOL_Free_F g_aucKolMemPt KOL_Assert
      # message service, with the delivered-size query of the receive path
      KOL_MsgFlowCtrlAlloc_F KOL_SEND_MSG MSG_Free MSG_SenderCidGet MSG_DataSizeGet
      # ordered trees
      ZAN_RBT_AddNode ZAN_RBT_LookupNode WUX_RBT_FirstNode WUX_RBT_NextNode WUX_RBT_RemoveNode WUX_RBT_ClearTree
      # diagnostics and command framework
      ZAN_InnerData_RegCallBack ZAN_InnerData_Output CLI_AddOptionData CLI_AddRec CLI_SetRetCode
      # basic functions
      WUX_MemCmp WUX_StrCmp WUX_StrToUint32 memcpy_s memset_s)
  set(stdlib vsnprintf memcpy memset memmove memcmp)
  set(runtime_regex "^(__cxa_finalize|__gmon_start__|_ITM_.*|__stack_chk_(fail|guard)|__aeabi_.*|__(a|ub|l)san_.*|__sanitizer_.*)$")
  set(bad "")
  set(used "")
  foreach(line ${lines})
    if(line MATCHES "^ *[UwvV] ([^@ ]+)")
      set(sym "${CMAKE_MATCH_1}")
      list(FIND platform ${sym} p)
      list(FIND stdlib ${sym} c)
      if(p GREATER_EQUAL 0 OR c GREATER_EQUAL 0)
        list(APPEND used ${sym})
      elseif(NOT sym MATCHES "${runtime_regex}")
        list(APPEND bad ${sym})
      endif()
    endif()
  endforeach()
  if(bad)
    list(JOIN bad " " bad_text)
    message(FATAL_ERROR "${LIB} calls what it must not: ${bad_text}")
  endif()
  list(LENGTH used n)
  message(STATUS "imports ok: ${n} platform and C library symbols")
  return()
endif()

set(found "")
foreach(line ${lines})
  # Code symbols: text (T/t), weak (W/w) and indirect functions (i). Data symbols such as
  # __bss_start, _edata and _end are not functions and are not looked at.
  if(line MATCHES "^[0-9a-fA-F]+ [TtWwi] (.+)$")
    set(sym "${CMAKE_MATCH_1}")
    if(NOT sym MATCHES "^_(init|fini)$")
      list(APPEND found ${sym})
    endif()
  endif()
endforeach()
list(SORT found)
set(want ZAN_VrrpAdp_DeInit ZAN_VrrpAdp_Get ZAN_VrrpAdp_RegCallBack ZAN_VrrpAdp_SendData
    ZAN_VrrpAdp_SetWorkState ZAN_VrrpAdp_Subscribe ZAN_VrrpAdp_UnSubscribe)
list(SORT want)
if(NOT found STREQUAL want)
  set(extra ${found})
  list(REMOVE_ITEM extra ${want})
  set(missing ${want})
  if(found)
    list(REMOVE_ITEM missing ${found})
  endif()
  list(JOIN found " " found_text)
  list(JOIN extra " " extra_text)
  list(JOIN missing " " missing_text)
  message(FATAL_ERROR "${LIB} exports functions: ${found_text}\n"
                      "not expected: ${extra_text}\nmissing: ${missing_text}")
endif()
list(JOIN found " " found_text)
message(STATUS "exports ok: ${found_text}")
