# Writes the vorl man page with help2man: the synopsis and description from
# "vorl --help", the version from "vorl --version", and a COMMANDS section
# with every command's own --help text, unformatted.
# -DHELP2MAN=... -DTOOL=<vorl> -DOUT=<vorl.1> -DDOCDIR=<docs folder, relative>
execute_process(COMMAND ${TOOL} --help OUTPUT_VARIABLE overview RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "${TOOL} --help failed")
endif()

# The commands are the first words of the lines of the overview's list.
string(REGEX MATCH "Commands:\n.*" command_list "${overview}")
string(FIND "${command_list}" "\n\n" end)
string(SUBSTRING "${command_list}" 0 ${end} command_list)
string(REGEX MATCHALL "\n  [a-z][a-z-]* " lines "${command_list}")
set(commands)
foreach(line IN LISTS lines)
  string(STRIP "${line}" word)
  list(APPEND commands ${word})
endforeach()
list(REMOVE_DUPLICATES commands)

set(include "[COMMANDS]\n")
foreach(command IN LISTS commands)
  execute_process(COMMAND ${TOOL} ${command} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(status)
    message(FATAL_ERROR "${TOOL} ${command} --help failed")
  endif()
  # Plain text in roff: backslashes escaped; lines that roff or help2man
  # would read as requests or section names made literal.
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "\n([.'[])" "\n\\\\&\\1" text "\n${text}")
  string(SUBSTRING "${text}" 1 -1 text)
  string(APPEND include ".SS \"vorl ${command}\"\n.nf\n${text}.fi\n")
endforeach()
string(APPEND include "[SEE ALSO]\nThe manual, tool.md, and the library's README.md in ${DOCDIR} under the installation prefix.\n")
get_filename_component(dir ${OUT} DIRECTORY)
file(WRITE ${dir}/vorl_man_include.txt "${include}")

execute_process(
  COMMAND ${HELP2MAN} --no-info --section=1 "--name=remove lens-drive noise from stereo recordings"
          --include=${dir}/vorl_man_include.txt --output=${OUT} ${TOOL}
  RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "help2man failed on ${TOOL}")
endif()
