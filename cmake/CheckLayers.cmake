# Dependencies point down: python, cli -> lib/registry -> lib/* -> platform/*; cli -> agent ->
# snapshot -> platform; the rova-agent program (agent/AgentMain.cpp) on top of cli.
# A header reached the wrong way builds fine by accident of the include path, so the build
# checks every include against the layer it comes from and stops on the first wrong one.
#   cmake -DROOT=<source dir> -P CheckLayers.cmake

# What each folder may include, besides itself.
set(allowed_platform "platform/")
set(allowed_lib "platform/;lib/")
set(allowed_snapshot "platform/;snapshot/")
set(allowed_agent "platform/;snapshot/;agent/")
set(allowed_cli "platform/;lib/registry/;snapshot/;agent/;cli/")
set(allowed_python "platform/;lib/registry/;snapshot/;agent/;cli/;python/")
# The rova-agent program itself sits on top, as the rova program's main does: it applies the
# changes sent to it with the command engine's editors.
set(allowed_agent_program "platform/;lib/registry/;snapshot/;agent/;cli/")

set(bad "")
foreach(layer platform lib snapshot agent cli python)
  file(GLOB_RECURSE sources "${ROOT}/${layer}/*.h" "${ROOT}/${layer}/*.cpp")
  foreach(source ${sources})
    file(STRINGS "${source}" includes REGEX "^#include \"")
    foreach(line ${includes})
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" path "${line}")
      set(ok FALSE)
      set(allowed ${allowed_${layer}})
      if(source MATCHES "/agent/AgentMain\\.cpp$")
        set(allowed ${allowed_agent_program})
      endif()
      foreach(prefix ${allowed})
        string(FIND "${path}" "${prefix}" at)
        if(at EQUAL 0)
          set(ok TRUE)
        endif()
      endforeach()
      # A folder of lib/ may use lib/common, the shared route vocabulary, but not a sibling's
      # registry; the registry alone sees every lib folder.
      if(ok AND layer STREQUAL "lib")
        string(FIND "${path}" "lib/registry/" toRegistry)
        string(FIND "${source}" "/lib/registry/" inRegistry)
        if(toRegistry EQUAL 0 AND inRegistry EQUAL -1)
          set(ok FALSE)
        endif()
      endif()
      if(NOT ok)
        file(RELATIVE_PATH rel "${ROOT}" "${source}")
        string(APPEND bad "  ${rel} includes ${path}\n")
      endif()
    endforeach()
  endforeach()
endforeach()
if(bad)
  message(FATAL_ERROR "Includes against the layering (cli -> lib/registry -> lib -> platform, snapshot -> platform):\n${bad}")
endif()
