// TNExprOwner and TNExprGraph: owners that free expression graphs exactly once (ours, beside the
// pointer rules of TNExpr.h).
//
// A graph's nodes are linked by SgxCyclicPtrs that own nothing while the graph is used; freeing
// it means claiming it from its root and deleting the root pointer. These owners do that when
// they are destroyed, so a host never calls takeOwnership() itself.
//
// Sharing. A node reachable from several roots is deleted with whichever root is claimed first,
// so graphs that share nodes must be freed together: give all their roots to one TNExprOwner
// (adopt), which claims and deletes them in the order adopted, each node exactly once, however
// the graphs share and loop. Two owners must never hold graphs that share a node. A TNExprGraph
// is a TNExprOwner with one root, typed by its family, that can also evaluate it.
//
// Owners are move-only. Not thread-safe, like the graphs themselves.
#pragma once

#include "sgx/general/SgxCyclicPtr.h"
#include "tarnel/expressions/TNExpr.h"

#include <memory>
#include <utility>
#include <vector>

class TNExprOwner {
public:
    TNExprOwner() = default;
    TNExprOwner(const TNExprOwner&) = delete;
    TNExprOwner& operator=(const TNExprOwner&) = delete;
    TNExprOwner(TNExprOwner&& other) noexcept = default;
    // Frees what this owner holds, then takes the other's graphs.
    TNExprOwner& operator=(TNExprOwner&& other) noexcept {
        if (this != &other) {
            reset();
            m_roots = std::move(other.m_roots);
        }
        return *this;
    }
    // Frees every graph adopted (reset).
    ~TNExprOwner() { reset(); }

    // Takes the graph rooted at `root` (null is ignored) and returns `root`. The owner frees it,
    // with every graph adopted before and after, when it is reset or destroyed. A root already
    // adopted, or reachable from a root adopted earlier, is freed once all the same. Raises only
    // std::bad_alloc, and then the graph stays the caller's.
    template <class Node> Node* adopt(Node* root) {
        if (root != nullptr)
            m_roots.push_back(std::make_unique<SgxCyclicPtr<SgxCyclicPtrBody>>(root));
        return root;
    }
    // Frees every graph adopted, in the order adopted; the owner is empty and usable afterwards.
    void reset() noexcept {
        // Claim all first: a later root reachable from an earlier one is then owned through the
        // earlier, and deleting it through its own pointer would free it twice.
        for (const auto& root : m_roots)
            root->takeOwnership();
        m_roots.clear();
    }
    // How many roots this owner holds.
    size_t size() const noexcept { return m_roots.size(); }
    // Gives every graph up without freeing anything: they are the caller's again.
    void releaseAll() noexcept { m_roots.clear(); }

private:
    // Each on the heap: an owning pointer must not move once it has claimed (see SgxCyclicPtr).
    std::vector<std::unique_ptr<SgxCyclicPtr<SgxCyclicPtrBody>>> m_roots;
};

// One graph of a given family (TNValueExpr, TNObjectExpr, TNObjectCollectionExpr or
// TNStringCollectionExpr), owned.
template <class Family> class TNExprGraph {
public:
    // An empty graph: get() is null.
    TNExprGraph() = default;
    // Takes the graph rooted at `root`.
    explicit TNExprGraph(Family* root) : m_root(m_owner.adopt(root)) {}
    TNExprGraph(TNExprGraph&& other) noexcept
        : m_owner(std::move(other.m_owner)), m_root(std::exchange(other.m_root, nullptr)) {}
    TNExprGraph& operator=(TNExprGraph&& other) noexcept {
        if (this != &other) {
            m_owner = std::move(other.m_owner);
            m_root = std::exchange(other.m_root, nullptr);
        }
        return *this;
    }

    // The root (borrowed; valid while this graph lives), or null.
    Family* get() const noexcept { return m_root; }
    // The root. Raises SgxException "Null dereference" for an empty graph.
    Family& operator*() const {
        if (m_root == nullptr) [[unlikely]]
            SgxException::raise("Null dereference");
        return *m_root;
    }
    Family* operator->() const { return &**this; }
    explicit operator bool() const noexcept { return m_root != nullptr; }
    // Evaluates the graph (Family::operator()()), raising what that raises.
    auto operator()() const { return (**this)(); }

    // Gives the graph up: the caller owns it again (its nodes are not claimed).
    Family* release() noexcept {
        m_owner.releaseAll();
        return std::exchange(m_root, nullptr);
    }

private:
    TNExprOwner m_owner;
    Family* m_root = nullptr;
};
