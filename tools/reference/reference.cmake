# Writes or checks docs/reference.md from what kiv_reference prints, so the generator itself
# does no file I/O.  cmake -DEXE=... -DDOC=... [-DCHECK=1] -P reference.cmake
execute_process(COMMAND "${EXE}" OUTPUT_VARIABLE text RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "kiv_reference failed (${rc})")
endif()
string(REPLACE "\r\n" "\n" text "${text}")  # a text-mode stdout on Windows
if(CHECK)
  if(EXISTS "${DOC}")
    file(READ "${DOC}" old)
  endif()
  if(NOT old STREQUAL text)
    message(FATAL_ERROR "${DOC} is not what the operation table gives: run `cmake --build --preset linux --target reference`")
  endif()
else()
  file(WRITE "${DOC}" "${text}")
endif()
