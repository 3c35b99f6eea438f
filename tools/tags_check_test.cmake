# Test of `tarnel tags check`, run by CTest with -DTARNEL=<program> -DWORK=<scratch folder>: the W1
# schema written by `tarnel demo --save-schema`, a tagged-value file whose lines all apply, and one
# with a line of each failure, whose report and exit status must be exactly these.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

# Runs `tarnel args...` and fails the test unless it exits with `status` and prints `expected`.
function(expect_run status expected)
    execute_process(COMMAND ${TARNEL} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out
                    ERROR_VARIABLE err)
    if(NOT rc STREQUAL status OR NOT out STREQUAL expected)
        string(JOIN " " command ${ARGN})
        message(FATAL_ERROR "tarnel ${command}: exit ${rc} (expected ${status})\n"
                            "printed:\n${out}${err}\nexpected:\n${expected}")
    endif()
endfunction()

execute_process(COMMAND ${TARNEL} demo --save-schema ${WORK}/w1.schema RESULT_VARIABLE rc
                OUTPUT_QUIET)
if(NOT rc EQUAL 0 OR NOT EXISTS ${WORK}/w1.schema)
    message(FATAL_ERROR "tarnel demo --save-schema failed (exit ${rc})")
endif()

file(WRITE ${WORK}/good.tags [=[
; display names for the W1 model
Class: TaggedValue; name=Package; valuename=alias; value="Paket"

AttributeDescriptor: TaggedValue; name=Class:isAbstract; valuename=label; value="abstract"
Association: TaggedValue; name=Package:classes; valuename=alias; value="contents"
Association: TaggedValueDefault; name=shown; type=bool; default=true
]=])
expect_run(0 "" tags check ${WORK}/w1.schema ${WORK}/good.tags)

file(WRITE ${WORK}/bad.tags [=[
Class: TaggedValue; name=Package; valuename=alias; value="Paket"
Klass: TaggedValue; name=Package; valuename=alias; value="x"
Class: TaggedValues; name=Package; valuename=alias; value="x"
Class: TaggedValue; name =Package; valuename=alias; value="x"
Class: TaggedValue; name=Package; value=alias; value="x"
Class: TaggedValueDefault; name=x; type=float; default=1
Class: TaggedValue; name=Package; valuename=alias; value="a\qb"
Class: TaggedValue; name=Packages; valuename=alias; value="x"
AttributeDescriptor: TaggedValue; name=Package:size; valuename=unit; value=1
Association: TaggedValue; name=Package:operations; valuename=alias; value=1

; the end
]=])
expect_run(1 [=[2: unknown element kind "Klass"
3: unknown record kind "TaggedValues"
4: blank before "=" after key "name"
5: expected key "valuename", found "value"
6: unknown type "float"
7: bad escape in "a\qb"
8: unknown class "Packages"
9: unknown attribute "size" of class "Package"
10: unknown association "operations" of class "Package"
]=] tags check ${WORK}/w1.schema ${WORK}/bad.tags)

expect_run(2 "" tags check ${WORK}/w1.schema ${WORK}/missing.tags)
expect_run(2 "" tags check ${WORK}/missing.schema ${WORK}/good.tags)
