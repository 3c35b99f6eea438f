#include "tarnel/core/TNChecked.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

bool tnCheckedBuild() noexcept { return TARNEL_CHECKED_BUILD != 0; }

TNEvaluationException::TNEvaluationException(SgxString reason, SgxString nodeClass,
                                             SgxString operand)
    : SgxException(std::move(reason)), m_nodeClass(std::move(nodeClass)),
      m_operand(std::move(operand)) {}

TNEvaluationException::~TNEvaluationException() noexcept = default;

SgxString tn_detail::className(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && readable ? SgxString(readable.get()) : SgxString(type.name());
}

void tn_detail::raiseUnsetOperand(const std::type_info& node, bool arrow) {
    // The text an unchecked build raises for the same access (SgxCyclicPtr's const forms: nodes
    // evaluate through const pointers).
    SgxException::raise(
        TNEvaluationException(arrow ? "Null dereference of SgxCyclicPtr<T>::operator->() const"
                                    : "Null dereference of SgxCyclicPtr<T>::operator*() const",
                              className(node), "unset operand"));
}

void tn_detail::raiseUnboundVariable(const std::type_info& node) {
    const SgxString name = className(node);
    SgxException::raise(TNEvaluationException("Unbound variable: " + name +
                                                  " evaluated before an object was bound to it",
                                              name, "unbound variable"));
}
