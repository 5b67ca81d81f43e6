# The README compares by figures of docs/benchmarks.md and no others: each line of its table stands there.
#
# Called with SOURCE_DIR, the root of the repository.
cmake_minimum_required(VERSION 3.25)

file(STRINGS "${SOURCE_DIR}/README.md" lines ENCODING UTF-8)
file(READ "${SOURCE_DIR}/docs/benchmarks.md" figures)
set(is_inside FALSE)
set(num_rows 0)
foreach(line IN LISTS lines)
  if(line MATCHES "^## ")
    string(COMPARE EQUAL "${line}" "## Compared with others" is_inside)
  elseif(is_inside AND line MATCHES "^\\| ")
    math(EXPR num_rows "${num_rows} + 1")
    string(FIND "${figures}" "\n${line}\n" place)
    if(place EQUAL -1)
      message(SEND_ERROR "Not in docs/benchmarks.md: ${line}")
    endif()
  endif()
endforeach()
if(num_rows LESS 5)
  message(FATAL_ERROR "Found ${num_rows} lines of the table in the README")
endif()
