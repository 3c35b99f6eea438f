# Test of `tarnel query`, run by CTest with -DTARNEL=<program> -DWORK=<scratch folder>
# -DQUERIES=<examples/queries>: the example queries give the demo's figures on the W1 model of
# 10,000 objects, a query compiles against the schema file `tarnel demo --save-schema` writes,
# and a query that does not compile exits with status 1 and the error.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

# Runs `tarnel args...`; fails the test unless it exits with `status` and prints `expected`
# somewhere in its output (standard output and error together).
function(expect_run status expected)
    execute_process(COMMAND ${TARNEL} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out
                    ERROR_VARIABLE err)
    string(FIND "${out}${err}" "${expected}" found)
    if(NOT rc STREQUAL status OR found EQUAL -1)
        string(JOIN " " command ${ARGN})
        message(FATAL_ERROR "tarnel ${command}: exit ${rc} (expected ${status})\n"
                            "printed:\n${out}${err}\nexpected to find:\n${expected}")
    endif()
endfunction()

expect_run(0 "(text of 23720 characters)"
           query --demo 10000 --file ${QUERIES}/q1_public_operations.tnq)
expect_run(0 "\n1500\n" query --demo 10000 --file ${QUERIES}/q2_public_operations_per_class.tnq)
expect_run(0 "\n990\n" query --demo 10000 --file ${QUERIES}/q3_classes_below_top_packages.tnq)

execute_process(COMMAND ${TARNEL} demo --save-schema ${WORK}/w1.schema RESULT_VARIABLE rc
                OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "tarnel demo --save-schema failed (exit ${rc})")
endif()
expect_run(0 "Package.allInstances()->sum(x | x.navigate('[classes] -> [attributes]')"
           query --schema ${WORK}/w1.schema --print --file ${QUERIES}/r2_two_levels_of_links.tnq)
expect_run(1 [=[column 40: unknown attribute or role 'visibilty' of class Operation; did you mean 'visibility'?
  Operation.allInstances()->select(o | o.visibilty = 'public')
                                         ^]=]
           query --schema ${WORK}/w1.schema "Operation.allInstances()->select(o | o.visibilty = 'public')")
expect_run(1 "cannot read" query --schema ${WORK}/w1.schema --file ${WORK}/missing.tnq)
