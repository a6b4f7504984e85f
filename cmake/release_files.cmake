# The version (project()) and the description (project()'s and ZELCLI_ABOUT)
# are written again where other tools read them: the Debian changelog, the
# changelog, the Buildroot package and the Yocto recipe. Configure fails,
# naming every file that disagrees.
set(disagreeing "")
function(expect file what actual expected)
  string(REGEX REPLACE "[ \t\n\\\\]+" " " actual "${actual}")
  string(REGEX REPLACE "[ \t\n]+" " " expected "${expected}")
  string(STRIP "${actual}" actual)
  if(NOT actual STREQUAL expected)
    list(APPEND disagreeing "${file}: ${what} is '${actual}', not '${expected}'")
    set(disagreeing "${disagreeing}" PARENT_SCOPE)
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
endfunction()
# The first group of REGEX in FILE, whose first line follows a newline too.
function(read_match file regex variable)
  file(READ ${PROJECT_SOURCE_DIR}/${file} text)
  string(REGEX MATCH "${regex}" match "\n${text}")
  set(${variable} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

read_match(packaging/changelog "^\nzelcli \\(([^-)]*)" version)
expect(packaging/changelog "the newest entry's upstream version" "${version}" ${PROJECT_VERSION})
read_match(CHANGELOG.md "\n## ([^ \n]*)" version)
expect(CHANGELOG.md "the newest release" "${version}" ${PROJECT_VERSION})

set(buildroot buildroot/package/zelcli)
read_match(${buildroot}/zelcli.mk "\nZELCLI_VERSION = ([^\n]*)" version)
expect(${buildroot}/zelcli.mk ZELCLI_VERSION "${version}" ${PROJECT_VERSION})
read_match(${buildroot}/Config.in "\thelp\n((\t  [^\n]*\n)+)" about)
expect(${buildroot}/Config.in "the help's first paragraph" "${about}" "${ZELCLI_ABOUT}")

set(recipes meta-zelcli/recipes-support/zelcli)
file(GLOB recipe RELATIVE ${PROJECT_SOURCE_DIR}/${recipes} ${PROJECT_SOURCE_DIR}/${recipes}/*.bb)
expect(${recipes} "the recipe" "${recipe}" zelcli_${PROJECT_VERSION}.bb)
set(recipe ${recipes}/zelcli_${PROJECT_VERSION}.bb)
if(EXISTS ${PROJECT_SOURCE_DIR}/${recipe})
  read_match(${recipe} "\nSUMMARY = \"([^\"]*)\"" summary)
  expect(${recipe} SUMMARY "${summary}" "${PROJECT_DESCRIPTION}")
  read_match(${recipe} "\nDESCRIPTION = \"([^\"]*)\"" about)
  expect(${recipe} DESCRIPTION "${about}" "${ZELCLI_ABOUT}")
endif()

if(disagreeing)
  list(JOIN disagreeing "\n  " disagreeing)
  message(FATAL_ERROR "Files that disagree with CMakeLists.txt (version ${PROJECT_VERSION}):\n"
                      "  ${disagreeing}")
endif()
