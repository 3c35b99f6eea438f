// A small metamodel that exercises every row of the Ecore mapping, shared by the importer tests.
#pragma once

#include "ImportTestSupport.h"

inline std::string libraryEcore() {
    const std::string ecore = "ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//";
    auto attr = [&](const std::string& name, const std::string& type,
                    const std::string& extra = "") {
        return R"(<eStructuralFeatures xsi:type="ecore:EAttribute" name=")" + name +
               R"(" eType=")" + type + "\" " + extra + "/>\n";
    };
    return ecorePackage("lib",
                        R"(
<eClassifiers xsi:type="ecore:EEnum" name="Color">
  <eLiterals name="Red" value="5"/><eLiterals name="Green"/><eLiterals name="Blue" literal="bl"/>
</eClassifiers>
<eClassifiers xsi:type="ecore:EDataType" name="Money" instanceClassName="java.math.BigDecimal"/>
<eClassifiers xsi:type="ecore:EDataType" name="Opaque" instanceClassName="com.acme.Thing"/>
<eClassifiers xsi:type="ecore:EClass" name="Named" abstract="true">
  <eAnnotations source="doc"><details key="text" value="has a name"/></eAnnotations>
  <eStructuralFeatures xsi:type="ecore:EAttribute" name="name" eType=")" +
                            ecore + R"(EString">
    <eAnnotations source="doc"><details key="text" value="the name"/></eAnnotations>
  </eStructuralFeatures>
</eClassifiers>
<eClassifiers xsi:type="ecore:EClass" name="Library" eSuperTypes="#//Named">
  <eStructuralFeatures xsi:type="ecore:EReference" name="books" upperBound="-1" eType="#//Book"
      containment="true" eOpposite="#//Book/library"/>
  <eStructuralFeatures xsi:type="ecore:EReference" name="writers" upperBound="-1"
      eType="#//Writer" containment="true"/>
</eClassifiers>
<eClassifiers xsi:type="ecore:EClass" name="Writer" eSuperTypes="#//Named">
  <eStructuralFeatures xsi:type="ecore:EReference" name="books" upperBound="-1" eType="#//Book"
      eOpposite="#//Book/authors"/>
</eClassifiers>
<eClassifiers xsi:type="ecore:EClass" name="Book" eSuperTypes="#//Named">
  <eStructuralFeatures xsi:type="ecore:EReference" name="library" eType="#//Library"
      eOpposite="#//Library/books"/>
  <eStructuralFeatures xsi:type="ecore:EReference" name="authors" lowerBound="1" upperBound="-1"
      eType="#//Writer" eOpposite="#//Writer/books"/>
  <eStructuralFeatures xsi:type="ecore:EReference" name="cites" upperBound="-1" eType="#//Book"/>
)" + attr("cover", "#//Color", R"(defaultValueLiteral="Green")") +
                            attr("pages", ecore + "EInt", R"(defaultValueLiteral="100")") +
                            attr("tags", ecore + "EString", R"(upperBound="-1")") +
                            attr("b8", ecore + "EByte") + attr("s16", ecore + "EShortObject") +
                            attr("i64", ecore + "ELong") + attr("big", ecore + "EBigInteger") +
                            attr("price", "#//Money") + attr("f32", ecore + "EFloat") +
                            attr("f64", ecore + "EDoubleObject") +
                            attr("flag", ecore + "EBoolean") + attr("when", ecore + "EDate") +
                            attr("ch", ecore + "EChar") + attr("opaque", "#//Opaque") + R"(
</eClassifiers>
<eClassifiers xsi:type="ecore:EClass" name="Novel" eSuperTypes="#//Book"/>
<eClassifiers xsi:type="ecore:EClass" name="ShortNovel" eSuperTypes="#//Novel"/>
)");
}
