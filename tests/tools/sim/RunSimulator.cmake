# Runs the simulator end to end: the trace must hold what the library itself emitted, which only
# the program's interposed trace entry points can capture.
execute_process(COMMAND "${SIM}" "${SCENARIO}" --out "${OUT}" --no-progress
                RESULT_VARIABLE status OUTPUT_VARIABLE summary ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "talvex-sim failed (${status}): ${errors}")
endif()
foreach(file timeline.csv trace.json chart.svg library.log)
    if(NOT EXISTS "${OUT}/${file}")
        message(FATAL_ERROR "talvex-sim wrote no ${file}")
    endif()
endforeach()
file(READ "${OUT}/trace.json" trace)
foreach(name "FpsManager::Update()" "Quillet::CalculateSleepDuration_ms()" "\"AI SFPS\""
        "AI Sleep duration (us)")
    string(FIND "${trace}" "${name}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "trace.json lacks ${name}")
    endif()
endforeach()
string(FIND "${summary}" "lowest SFPS                   none" at)
if(NOT at EQUAL -1)
    message(FATAL_ERROR "the current decider did not act:\n${summary}")
endif()
