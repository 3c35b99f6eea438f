// TNChecked.h: the library's checked mode, and the exception by which a checked evaluation names
// the expression node that met an unset operand or an unbound variable.
//
// A library built with the CMake option TARNEL_CHECKED (on by default for Debug and sanitizer
// builds) checks, besides what every build checks, the mistakes that its fast paths otherwise
// leave to the caller:
//   - a TNAttribute assigned an int, long, bool, double or text that its kind does not hold, or an
//     enumeration index outside its type's literals: TNException (Modify, EnumAttribute or
//     AttrDescriptor, Invalid) naming the class and the attribute, the slot unchanged;
//   - TNObject::associate with an object whose class is neither the association's other class
//     nor one derived from it: TNException (Create, Association, Invalid) naming both classes and
//     the role, before any link is recorded;
//   - an expression node that evaluates an operand that was never set, or a variable that was
//     never bound: TNEvaluationException naming the node class.
// An unchecked build keeps the unchecked fast paths: these checks are compiled out.
//
// Whether a build is checked is fixed when the library is built (tarnel/tarnel_config.h, which
// CMake generates and installs), so the inline code of the headers always agrees with the library.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxString.h"
#include "tarnel/tarnel_config.h"
#include "tarnel/tarnel_export.h"

#include <typeinfo>

// True when this library was built with TARNEL_CHECKED.
TARNEL_API bool tnCheckedBuild() noexcept;

// Raised by a checked evaluation. For an operand that was never set, the text is the
// null-dereference text that an unchecked build raises for it ("Null dereference of
// SgxCyclicPtr<T>::operator*() const", or "operator->() const" for a variable reached by an
// abstraction or quantifier), so a handler of SgxException sees the same text either way;
// nodeClass() names the node whose operand it was and operand() says so. For a variable that was
// never bound, the text is "Unbound variable: " + the node class + " evaluated before an object was
// bound to it". Caught as SgxException like every error of the library.
class TARNEL_API TNEvaluationException : public SgxException {
public:
    TNEvaluationException(SgxString reason, SgxString nodeClass, SgxString operand);
    TNEvaluationException(const TNEvaluationException&) = default;
    TNEvaluationException& operator=(const TNEvaluationException&) = default;
    ~TNEvaluationException() noexcept override;

    // The class of the node that failed: the host's own class name for a node class of its own.
    SgxString nodeClass() const { return m_nodeClass; }
    // What was missing: "unset operand" or "unbound variable".
    SgxString operand() const { return m_operand; }

private:
    SgxString m_nodeClass;
    SgxString m_operand;
};

namespace tn_detail {
// The readable name of a class from its type information ("TNFilterExpr").
TARNEL_API SgxString className(const std::type_info& type);
// Raise TNEvaluationException for `node`'s operand that was never set (reached through operator->
// when `arrow`, else operator*), and for a variable evaluated before it was bound.
[[noreturn, gnu::cold]] TARNEL_API void raiseUnsetOperand(const std::type_info& node, bool arrow);
[[noreturn, gnu::cold]] TARNEL_API void raiseUnboundVariable(const std::type_info& node);
} // namespace tn_detail
