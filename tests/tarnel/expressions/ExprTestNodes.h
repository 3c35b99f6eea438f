// Test nodes of the expression tests: a probe of any family that yields scripted results and
// records its evaluations and deletions.
#pragma once

#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using Log = std::vector<std::string>;
// Probe names in order of evaluation and of deletion, and the number of probes alive.
inline Log evaluated, deleted;
inline int live = 0;

inline int times(const Log& log, const std::string& name) {
    return static_cast<int>(std::count(log.begin(), log.end(), name));
}

struct ProbeScope {
    ProbeScope() { evaluated.clear(), deleted.clear(), live = 0; }
    ~ProbeScope() { EXPECT_EQ(live, 0) << "probes leaked"; }
};

// Evaluating a probe records its name, evaluates its operand `first` if set, then raises
// SgxException "probe failure" if told to, or yields its next scripted result (the last one
// once the script is used up). Its operands are value nodes whatever its family, so one probe
// can be shared by nodes of every family.
template <class Family> class Probe : public Family {
public:
    using Result = typename Family::Result;
    explicit Probe(std::string name, std::vector<Result> script = {Result()},
                   const TNValueExprPtr& first = nullptr)
        : m_first(first), m_name(std::move(name)), m_script(std::move(script)) {
        ++live;
    }
    ~Probe() override { --live, deleted.push_back(m_name); }
    Result operator()() const override {
        evaluated.push_back(m_name);
        if (!m_first.isNull())
            (*m_first)();
        if (throws)
            SgxException::raise("probe failure");
        return m_script.empty() ? Result() : m_script[std::min(m_next++, m_script.size() - 1)];
    }
    void prepareForDeletion() const override { tnClaimOperands(m_first, m_second); }
    void script(std::vector<Result> script) { m_script = std::move(script), m_next = 0; }
    bool throws = false;

    TN_EXPR_FIELD(TNValueExprPtr, first);
    TN_EXPR_FIELD(TNValueExprPtr, second);

private:
    std::string m_name;
    std::vector<Result> m_script;
    mutable size_t m_next = 0;
};
using ValueProbe = Probe<TNValueExpr>;
using ObjectProbe = Probe<TNObjectExpr>;
using ObjectsProbe = Probe<TNObjectCollectionExpr>;
using StringsProbe = Probe<TNStringCollectionExpr>;

// Distinct object handles for i in 0..7, never dereferenced.
inline SgxSimplePtr<TNObject> fakeObject(int i) {
    static char storage[8];
    return reinterpret_cast<TNObject*>(&storage[i]);
}

// Claims `node` from a root pointer, as a host does, and deletes it by destroying the pointer.
template <class Node> void claimAndDelete(Node* node) { SgxCyclicPtr<Node>(node).takeOwnership(); }
// Deletes the graph below a node on the stack through a heap copy sharing its operands.
template <class Node> void deleteOperandsOf(const Node& node) { claimAndDelete(new Node(node)); }

// The reason text of what `f` raises, or "nothing".
template <class F> std::string raised(F&& f) {
    try {
        f();
    } catch (const SgxException& e) {
        return e.reasonText();
    }
    return "nothing";
}

// Type and text, so that 9, 9.0, "9" and an empty value differ.
inline std::string show(const TNValue& v) {
    return std::to_string(v.myType()) + ":" + v.asString();
}
inline TNConstantExpr* constant(const TNValue& v) { return new TNConstantExpr(v); }

inline const std::string kNullOperand = "Null dereference of SgxCyclicPtr<T>::operator*() const";
