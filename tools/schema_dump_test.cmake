# Test of `tarnel demo --save-schema` and `tarnel schema dump`, run by CTest with
# -DTARNEL=<program> -DWORK=<scratch folder>: the W1 schema written by the demo, dumped as text and
# as JSON, and a file that is no schema.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

execute_process(COMMAND ${TARNEL} demo --save-schema ${WORK}/w1.schema RESULT_VARIABLE rc
                OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "tarnel demo --save-schema failed (exit ${rc})")
endif()

execute_process(COMMAND ${TARNEL} schema dump ${WORK}/w1.schema RESULT_VARIABLE rc
                OUTPUT_VARIABLE text)
foreach(expected
        "schema version 1.8: 5 classes, 1 enumeration types\n"
        "enumeration Visibility: public, protected, private, implementation\n"
        "\nclass Element\n  parents: (none)\n  children: Package, Class, Operation, Attribute\n"
        "  attribute visibility: enumeration Visibility (from Element)\n"
        "  association subpackages -> Package (packageTree; reverse role parent; multiplicities 0,-1 / 0,1)\n"
        "  compound association All Classes -> Class (<Package:All Classes>; multiplicities 1,1 / 1,1): top: [] -> ( [subpackages] -> @top; [classes] )\n")
    string(FIND "${text}" "${expected}" at)
    if(NOT rc EQUAL 0 OR at EQUAL -1)
        message(FATAL_ERROR "schema dump (exit ${rc}) lacks:\n${expected}\nprinted:\n${text}")
    endif()
endforeach()

execute_process(COMMAND ${TARNEL} schema dump --json ${WORK}/w1.schema RESULT_VARIABLE rc
                OUTPUT_VARIABLE json)
string(JSON classes LENGTH "${json}" classes)
string(JSON last GET "${json}" classes 4 name)
string(JSON source GET "${json}" classes 4 associations 0 source)
string(JSON enumeration GET "${json}" classes 0 attributes 6 enumeration)
if(NOT rc EQUAL 0 OR NOT classes EQUAL 5 OR NOT last STREQUAL "Package"
   OR NOT source STREQUAL "top: [] -> ( [subpackages] -> @top; [classes] )"
   OR NOT enumeration STREQUAL "Visibility")
    message(FATAL_ERROR "schema dump --json (exit ${rc}): ${classes} classes, last ${last}, "
                        "source ${source}, enumeration ${enumeration}")
endif()

file(WRITE ${WORK}/not.schema "plain text")
execute_process(COMMAND ${TARNEL} schema dump ${WORK}/not.schema RESULT_VARIABLE rc
                OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 2 OR NOT err STREQUAL "tarnel schema dump: Error reading schema file ${WORK}/not.schema\n")
    message(FATAL_ERROR "schema dump of a text file: exit ${rc}, printed ${out}${err}")
endif()
