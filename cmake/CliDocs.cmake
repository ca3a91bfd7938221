cmake_policy(VERSION 3.25)
# Makes the man page and the shell completions of parlova-cli from its own
# help texts (run with cmake -P, after the program is built).
#   CLI  the built parlova-cli    OUT  the folder to write into
#   HELP2MAN  the help2man program (empty: no man page)
set(ENV{XDG_CONFIG_HOME} "${OUT}/config")  # the docs never read the user's settings

function(cli_help name out)
  execute_process(COMMAND ${CLI} help ${name} OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "parlova-cli help ${name} failed")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# roff: backslashes, and lines that would read as requests.
function(roff_escape text out)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

foreach(shell bash zsh fish)
  execute_process(COMMAND ${CLI} completion ${shell} OUTPUT_FILE ${OUT}/parlova-cli.${shell} RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "parlova-cli completion ${shell} failed")
  endif()
endforeach()

if(NOT HELP2MAN)
  return()
endif()

execute_process(COMMAND ${CLI} --help OUTPUT_VARIABLE overview)
string(REGEX MATCH "Commands:\n(.*)\n\nOptions:" _ "${overview}")
string(REGEX MATCHALL "\n  [a-z][a-z-]*" names "\n${CMAKE_MATCH_1}")
set(include "[COMMANDS]\n")
foreach(entry ${names})
  string(STRIP "${entry}" name)
  if(name STREQUAL "help")
    continue()
  endif()
  cli_help(${name} text)
  set(all_names ${name})
  # Actions are the synopsis lines after the first: "       parlova-cli voices copy ..."
  string(REGEX MATCHALL "\n       parlova-cli ${name} [a-z][a-z-]*" actions "${text}")
  foreach(action ${actions})
    string(REGEX REPLACE "^\n +parlova-cli " "" action "${action}")
    list(APPEND all_names "${action}")
  endforeach()
  foreach(each ${all_names})
    string(REPLACE " " ";" words "${each}")
    cli_help("${words}" help)
    roff_escape("${help}" help)
    string(APPEND include ".SS \"${each}\"\n.nf\n${help}.fi\n")
  endforeach()
endforeach()
string(APPEND include "[SEE ALSO]\nThe README of Parlova, and 'parlova\\-cli COMMAND \\-\\-help'.\n")
file(WRITE ${OUT}/parlova-cli.h2m "${include}")
execute_process(COMMAND ${HELP2MAN} --no-info --no-discard-stderr
                        "--name=voice changer for the command line"
                        --include=${OUT}/parlova-cli.h2m --output=${OUT}/parlova-cli.1 ${CLI}
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed")
endif()
