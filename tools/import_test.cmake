# Test of `tarnel import`, run by CTest with -DTARNEL=<program> -DWORK=<scratch folder>: a small
# metamodel and model written here, their exact reports, a saved schema, and a model error that
# must name its file, line and column and end the program with status 1.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(expect_run status expected)
    execute_process(COMMAND ${TARNEL} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out
                    ERROR_VARIABLE err)
    if(NOT rc STREQUAL status OR NOT "${out}${err}" STREQUAL expected)
        string(JOIN " " command ${ARGN})
        message(FATAL_ERROR "tarnel ${command}: exit ${rc} (expected ${status})\n"
                            "printed:\n${out}${err}\nexpected:\n${expected}")
    endif()
endfunction()

file(WRITE ${WORK}/shop.ecore [=[<?xml version="1.0" encoding="UTF-8"?>
<ecore:EPackage xmi:version="2.0" xmlns:xmi="http://www.omg.org/XMI"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
    xmlns:ecore="http://www.eclipse.org/emf/2002/Ecore" name="shop" nsURI="http://test/shop" nsPrefix="shop">
  <eClassifiers xsi:type="ecore:EClass" name="Shop">
    <eStructuralFeatures xsi:type="ecore:EReference" name="items" upperBound="-1" eType="#//Item" containment="true"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Item">
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="price" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EDouble"/>
  </eClassifiers>
</ecore:EPackage>
]=])
file(WRITE ${WORK}/shop.xmi [=[<?xml version="1.0" encoding="UTF-8"?>
<shop:Shop xmlns:xmi="http://www.omg.org/XMI" xmlns:shop="http://test/shop">
  <items price="1.5"/><items/>
</shop:Shop>
]=])
file(WRITE ${WORK}/bad.xmi [=[<?xml version="1.0" encoding="UTF-8"?>
<shop:Shop xmlns:xmi="http://www.omg.org/XMI" xmlns:shop="http://test/shop">
  <items cost="1.5"/>
</shop:Shop>
]=])

expect_run(0 "Shop: 0 attributes, 1 associations
Item: 1 attributes, 1 associations
2 classes, 0 enumeration types from 1 file(s)
" import ecore ${WORK}/shop.ecore --save-schema ${WORK}/shop.schema)
if(NOT EXISTS ${WORK}/shop.schema)
    message(FATAL_ERROR "tarnel import ecore --save-schema wrote no schema")
endif()
expect_run(0 "Shop: 1
Item: 2
3 objects
" import xmi --ecore ${WORK}/shop.ecore ${WORK}/shop.xmi)
expect_run(1 "tarnel import: ${WORK}/bad.xmi:3:3: class 'Item' has no feature 'cost'
" import xmi --ecore ${WORK}/shop.ecore ${WORK}/bad.xmi)

# A query on the imported model: the items with a price, counted.
execute_process(COMMAND ${TARNEL} query --ecore ${WORK}/shop.ecore --xmi ${WORK}/shop.xmi
                        "Item.allInstances()->select(i | i.price > 1.0)->size()"
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(FIND "${out}" "\n1\n(integer)\nevaluated in " at)
string(FIND "${out}" " ms on the imported model of 3 objects\n" model)
if(NOT rc EQUAL 0 OR at EQUAL -1 OR model EQUAL -1)
    message(FATAL_ERROR "tarnel query --ecore --xmi: exit ${rc}\nprinted:\n${out}${err}")
endif()
