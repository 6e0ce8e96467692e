# Writes the notices of the runtime code that is linked into the Windows files, as the installed packages state them:
#   cmake -DOUTPUT=FILE -P cmake/notice.cmake
set(gcc /usr/share/doc/gcc-mingw-w64-base/copyright)
set(mingw /usr/share/doc/mingw-w64-x86-64-dev/copyright)
# libstdc++ grew out of two older libraries; its headers have the notices of both.
file(GLOB vector LIST_DIRECTORIES FALSE /usr/lib/gcc/x86_64-w64-mingw32/*-posix/include/c++/bits/stl_vector.h)
foreach(file IN ITEMS "${gcc}" "${mingw}" "${vector}")
  if(NOT EXISTS "${file}")
    message(FATAL_ERROR "${file} is missing: install g++-mingw-w64-x86-64-posix")
  endif()
endforeach()
if(NOT OUTPUT)
  message(FATAL_ERROR "name the file to write: -DOUTPUT=FILE")
endif()

# The text from `first` up to `end`. Both must be in the packages' files, or a notice would be lost silently.
function(take_between text first end result)
  string(FIND "${text}" "${first}" from)
  if(from GREATER_EQUAL 0)
    string(SUBSTRING "${text}" ${from} -1 text)
    string(FIND "${text}" "${end}" length)
  endif()
  if(from LESS 0 OR length LESS 0)
    message(FATAL_ERROR "the packages' notices have changed: there is no '${first}' up to '${end}'")
  endif()
  string(SUBSTRING "${text}" 0 ${length} text)
  string(STRIP "${text}" text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# Never treat the texts as lists: they contain semicolons and brackets.
file(READ "${gcc}" text)
take_between("${text}" "GCC RUNTIME LIBRARY EXCEPTION\n" "\nlibquadmath/" exception)

file(READ "${vector}" text)
take_between("${text}" "\n * Copyright (c) 1994" "\n */" origins)
string(REGEX REPLACE "(^|\n) ?\\* ?" "\\1" origins "${origins}")

# Keeps the paragraphs about code that is compiled into the runtime: not headers for other interfaces, tools, profilers
# or tests, and nothing in the public domain, which requires no notice.
file(READ "${mingw}" text)
string(REPLACE "\t" "        " text "${text}")
string(APPEND text "\n\n")
set(notices "")
set(kept_files "\\*\n|mingw-w64-crt/|mingw-w64-libraries/winpthreads/")
set(left_out "mingw-w64-crt/profile/|mingw-w64-libraries/winpthreads/tests_pthread/")
set(kept_licences "BSD-3-clause|BSD-2-clause-NetBSD|ISC|expat")
while(NOT text STREQUAL "")
  string(FIND "${text}" "\n\n" length)
  string(SUBSTRING "${text}" 0 ${length} paragraph)
  math(EXPR next "${length} + 2")
  string(SUBSTRING "${text}" ${next} -1 text)
  if(paragraph MATCHES "\nLicense: public-domain")
    continue()
  endif()
  if((paragraph MATCHES "^\n*Files: (${kept_files})" AND NOT paragraph MATCHES "^\n*Files: (${left_out})")
     OR paragraph MATCHES "^\n*License: (${kept_licences})\n")
    string(STRIP "${paragraph}" paragraph)
    string(REGEX REPLACE "\n \\.\n" "\n\n" paragraph "${paragraph}")
    string(APPEND notices "${paragraph}\n\n")
  endif()
endwhile()
foreach(needed IN ITEMS "License: ZPL-2.1" "winpthreads/\\*" "License: expat\n" "License: BSD-3-clause\n" "gdtoa")
  if(NOT notices MATCHES "${needed}")
    message(FATAL_ERROR "the packages' notices have changed: nothing matches '${needed}'")
  endif()
endforeach()

string(REPEAT "=" 100 line)
file(WRITE "${OUTPUT}" "\
orvane_mcp.dll and orvane_mcp.exe contain runtime code of the tools that they were built with. This file has the
notices that the licences of that code require.

${line}
GCC's libraries: libstdc++ and libgcc

Copyright (C) Free Software Foundation, Inc.

GNU General Public License, version 3 or later, with the GCC Runtime Library Exception, version 3.1. The exception allows
these files to be passed on under the terms of the rest of the program.

${exception}

Parts of libstdc++ carry these notices too:

${origins}

${line}
mingw-w64's runtime and winpthreads

${notices}")
