// Helpers shared by the collectable framework's tests: a small persistable graph node that counts
// its live instances and owns some of its neighbours, a builder of hand-made input bytes, and a
// check of the text of a raised exception.
#pragma once

#include "rw/RWCollectable.h"
#include "rw/RWbstream.h"
#include "sgx/general/SgxException.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

// Succeeds when `f` raises an SgxException whose reason text contains `part`.
template <class F>::testing::AssertionResult raisesWith(F&& f, const std::string& part) {
    try {
        f();
    } catch (const SgxException& e) {
        if (e.reasonText().find(part) != std::string::npos)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << "raised \"" << e.reasonText() << "\", expected it to contain \"" << part << "\"";
    } catch (...) {
        return ::testing::AssertionFailure() << "raised another exception";
    }
    return ::testing::AssertionFailure() << "raised nothing, expected \"" << part << "\"";
}

// A graph node. `links` are borrowed; `owned` are owned and deleted with the node. Guts: name,
// value, then the links and the owned nodes, each as a 32-bit count and references.
class TestNode : public RWCollectable {
public:
    explicit TestNode(std::string name = {}, int32_t value = 0)
        : m_name(std::move(name)), m_value(value) {
        all().insert(this);
    }
    ~TestNode() override {
        all().erase(this);
        for (TestNode* node : m_owned)
            delete node;
    }
    TestNode(const TestNode&) = delete;
    TestNode& operator=(const TestNode&) = delete;

    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void saveGuts(RWvostream& s) const override {
        s << m_name << m_value << static_cast<uint32_t>(m_links.size());
        for (const RWCollectable* link : m_links)
            s << link;
        s << static_cast<uint32_t>(m_owned.size());
        for (const TestNode* node : m_owned)
            s << node;
    }
    void restoreGuts(RWvistream& s) override {
        s >> m_name >> m_value;
        uint32_t count;
        s >> count;
        s.checkCount(count, 1, "links");
        for (uint32_t i = 0; i < count; ++i) {
            RWCollectable* link;
            s >> link;
            m_links.push_back(link);
        }
        s >> count;
        s.checkCount(count, 1, "owned nodes");
        for (uint32_t i = 0; i < count; ++i) {
            RWCollectable* read;
            s >> read;
            auto* node = dynamic_cast<TestNode*>(read);
            if (node == nullptr)
                SgxException::raise("Owned entry is not a TestNode");
            rwAdopt(node, this);
            adopt(node);
        }
    }

    void link(RWCollectable* other) { m_links.push_back(other); }
    TestNode* adopt(TestNode* node) {
        m_owned.push_back(node);
        node->m_owner = this;
        return node;
    }

    const std::string& name() const { return m_name; }
    int32_t value() const { return m_value; }
    const std::vector<RWCollectable*>& links() const { return m_links; }
    const std::vector<TestNode*>& owned() const { return m_owned; }
    TestNode* owner() const { return m_owner; }

    // Every live node.
    static std::set<TestNode*>& all() {
        static std::set<TestNode*> nodes;
        return nodes;
    }
    static size_t live() { return all().size(); }
    // Deletes every live node: each one nobody owns, which deletes the rest.
    static void deleteAll() {
        std::vector<TestNode*> roots;
        for (TestNode* node : all())
            if (node->m_owner == nullptr)
                roots.push_back(node);
        for (TestNode* root : roots)
            delete root;
    }

    static const RWClassID atom;

private:
    std::string m_name;
    int32_t m_value;
    std::vector<RWCollectable*> m_links;
    std::vector<TestNode*> m_owned;
    TestNode* m_owner = nullptr;
};

inline const RWClassID TestNode::atom = [] {
    const RWClassID id = RWCollectable::nextAtom();
    rwAddToFactory([]() -> RWCollectable* { return new TestNode; }, id, "TestNode");
    return id;
}();

// Builds input bytes by hand, with the streams' own encoding.
class Bytes {
public:
    Bytes() : m_stream(m_out) {}
    template <class T> Bytes& operator<<(const T& v) {
        m_stream << v;
        return *this;
    }
    Bytes& u8(uint8_t v) { return *this << v; }
    Bytes& u32(uint32_t v) { return *this << v; }
    Bytes& i32(int32_t v) { return *this << v; }
    Bytes& text(const std::string& v) { return *this << v; }
    Bytes& nil() { return *this << uint8_t{0}; }
    Bytes& backRef(uint32_t index) { return *this << uint8_t{1} << index; }
    Bytes& newObject(const std::string& className) { return *this << uint8_t{2} << className; }
    // The start of a TestNode's guts up to its link count.
    Bytes& nodeHead(const std::string& name, uint32_t links) {
        return *this << name << int32_t{0} << links;
    }
    std::string str() const { return m_out.str(); }
    operator std::string() const { return str(); }

private:
    std::ostringstream m_out;
    RWbostream m_stream;
};

// Restores one object from `bytes` with the virtual stream.
inline RWCollectable* restoreFrom(const std::string& bytes) {
    RWbistream in(bytes.data(), bytes.size());
    RWCollectable* object = nullptr;
    in >> object;
    return object;
}

// Stores `object` with the virtual stream and returns the bytes.
inline std::string storeToBytes(const RWCollectable& object) {
    std::ostringstream out;
    RWbostream stream(out);
    object.recursiveSaveOn(stream);
    return out.str();
}

// A fresh path in the temporary directory, removed when the object goes.
class TempPath {
public:
    explicit TempPath(const std::string& stem)
        : m_path(std::filesystem::temp_directory_path() /
                 (stem + "-" + std::to_string(::getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
        std::filesystem::remove(m_path);
    }
    ~TempPath() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    std::string str() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};
