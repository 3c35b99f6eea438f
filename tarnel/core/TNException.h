// TNException: the exception by which the library reports an error in the model or in a request
// made of it (a missing or duplicated name, a class still referenced, a navigation that found no
// or too many objects).
//
// It carries three codes (what was being done, to what kind of element, and why) and the names
// involved, and assembles its English message from them each time the message is asked for, so
// details set after construction always show. Programming errors are reported by SgxAssertion,
// never by this class.
//
// Every throw site raises through raise(), which logs under the category "Throw" first:
//
//     TNException(TNException::Access, TNException::Association, TNException::NameNotFound)
//         .setClass1(className)
//         .setAssoc(roleName)
//         .raise();
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxString.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>

class TARNEL_API TNException : public SgxException {
public:
    // What the caller tried to do. Any other value reads "perform unknown action on ".
    enum Action : int32_t { Delete = 0, Modify = 1, Create = 2, Access = 3, Traverse = 4 };
    // The kind of model element involved. Any other value, negative ones included, reads
    // "unknown object type".
    enum Target : int32_t {
        AttrDescriptor = 0,
        Class = 1,
        EnumType = 2,
        EnumAttribute = 3,
        Association = 4,
        AssociationChain = 5,
        TaggedValue = 6
    };
    // Why it failed. Invalid has no sentence of its own and reads "Unknown reason.", as any
    // other value does.
    enum Reason : int32_t {
        ReferencesExist = 0,
        NameNotFound = 1,
        DuplicateName = 2,
        Invalid = 3,
        NoObjectsInChain = 4,
        ManyObjectsInChain = 5
    };

    // All details empty. The codes are meant to be assigned before use; until then they hold
    // values outside every table, so the message reads as unknown action, target and reason.
    TNException();
    TNException(Action action, Target target, Reason reason);
    TNException(const TNException&) = default;
    TNException& operator=(const TNException&) = default;
    ~TNException() noexcept override;

    // Readers; each returns a copy.
    SgxString className1() const { return m_className1; }
    SgxString className2() const { return m_className2; }
    SgxString attrName() const { return m_attrName; }
    SgxString enumTypeName() const { return m_enumTypeName; }
    SgxString enumAttrName() const { return m_enumAttrName; }
    SgxString assocName() const { return m_assocName; }
    SgxString info() const { return m_info; }
    Action getAction() const { return m_action; }
    Target getTarget() const { return m_target; }
    Reason getReason() const { return m_reason; }

    // Setters. Each returns this exception, so a throw site can fill its details in one
    // expression and end it with raise(). The reason is fixed at construction.
    TNException& setClass1(const SgxString& name) {
        m_className1 = name;
        return *this;
    }
    TNException& setClass2(const SgxString& name) {
        m_className2 = name;
        return *this;
    }
    TNException& setAttr(const SgxString& name) {
        m_attrName = name;
        return *this;
    }
    TNException& setEnumType(const SgxString& name) {
        m_enumTypeName = name;
        return *this;
    }
    TNException& setEnumAttr(const SgxString& name) {
        m_enumAttrName = name;
        return *this;
    }
    TNException& setAssoc(const SgxString& name) {
        m_assocName = name;
        return *this;
    }
    TNException& setInfo(const SgxString& text) {
        m_info = text;
        return *this;
    }
    TNException& setTarget(Target target) {
        m_target = target;
        return *this;
    }
    TNException& setAction(Action action) {
        m_action = action;
        return *this;
    }

    // The message, assembled afresh from the codes and details:
    //   "Unable to " + action word + target word + ": " + reason sentence (ending in a line feed),
    //   then "Class name: " (or "Class name 1: " when there is a second) + className1,
    //   "\nClass name 2: ", "\nAttribute name: ", "\nEnumeration type name: ",
    //   "\nEnumeration attribute name: ", "\nAssociation name: " + the names that are set,
    //   and "\n" + info when set; no final line feed.
    // what() returns the same text.
    SgxString reasonText() const override;
    // Writes the freshly assembled message as one line to standard error.
    void showWhy() const override;

    // Raises a copy of this exception (its message stored in the base class) through
    // SgxException::raise, which first writes "Exception throw: " + reasonText() to the shared
    // log when its category "Throw" is enabled. The base class's static raise() overloads stay
    // visible beside this one.
    [[noreturn]] void raise() const;
    using SgxException::raise;

private:
    // The message as a function of the codes and details alone.
    SgxString assembleMessage() const;
    // Stores the assembled message in the base class, so that a copy sliced to SgxException
    // still carries it. raise() does this on the copy it throws; the const operations assemble
    // the text without touching the stored one.
    void constructMessage();

    Action m_action;
    Target m_target;
    Reason m_reason;
    SgxString m_className1;
    SgxString m_className2;
    SgxString m_attrName;
    SgxString m_enumTypeName;
    SgxString m_enumAttrName;
    SgxString m_assocName;
    SgxString m_info;
};
