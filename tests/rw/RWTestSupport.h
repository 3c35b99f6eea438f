// Helpers shared by the collectable framework's tests: a persistable graph node that counts its
// live instances and owns some of its neighbours, a builder of hand-made input bytes, and
// store/restore shortcuts.
#pragma once

#include "rw/RWCollectable.h"
#include "rw/RWbstream.h"
#include "sgx/general/GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

// A graph node. `links` are borrowed; `owned` are owned and deleted with the node. Guts: name,
// value, then the links and the owned nodes, each as a 32-bit count and references.
struct TestNode : RWCollectable {
    explicit TestNode(std::string name = {}, int32_t value = 0)
        : name(std::move(name)), value(value) {
        all().insert(this);
    }
    ~TestNode() override {
        all().erase(this);
        for (TestNode* node : owned)
            delete node;
    }
    TestNode(const TestNode&) = delete;
    TestNode& operator=(const TestNode&) = delete;

    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void saveGuts(RWvostream& s) const override {
        s << name << value << static_cast<uint32_t>(links.size());
        for (const RWCollectable* link : links)
            s << link;
        s << static_cast<uint32_t>(owned.size());
        for (const TestNode* node : owned)
            s << node;
    }
    void restoreGuts(RWvistream& s) override {
        uint32_t count;
        s >> name >> value >> count;
        s.checkCount(count, 1, "links");
        links.resize(count);
        for (RWCollectable*& link : links)
            s >> link;
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
    TestNode* adopt(TestNode* node) {
        owned.push_back(node);
        node->owner = this;
        return node;
    }

    // Every live node; deleteAll() deletes those nobody owns, which deletes the rest.
    static std::set<TestNode*>& all() {
        static std::set<TestNode*> nodes;
        return nodes;
    }
    static size_t live() { return all().size(); }
    static void deleteAll() {
        std::vector<TestNode*> roots;
        for (TestNode* node : all())
            if (node->owner == nullptr)
                roots.push_back(node);
        for (TestNode* root : roots)
            delete root;
    }
    static const RWClassID atom;

    std::string name;
    int32_t value;
    std::vector<RWCollectable*> links;
    std::vector<TestNode*> owned;
    TestNode* owner = nullptr;
};

// Registers T under `name` with a fresh class id, which it returns.
template <class T> RWClassID registerTestClass(const char* name) {
    const RWClassID id = RWCollectable::nextAtom();
    rwAddToFactory([]() -> RWCollectable* { return new T; }, id, name);
    return id;
}
inline const RWClassID TestNode::atom = registerTestClass<TestNode>("TestNode");

// Builds input bytes by hand, with the streams' own encoding.
struct Bytes {
    std::ostringstream out;
    RWbostream stream{out};
    template <class T> Bytes& operator<<(const T& v) {
        stream << v;
        return *this;
    }
    Bytes& u8(uint8_t v) { return *this << v; }
    Bytes& u32(uint32_t v) { return *this << v; }
    Bytes& i32(int32_t v) { return *this << v; }
    Bytes& backRef(uint32_t index) { return *this << uint8_t{1} << index; }
    Bytes& newObject(const std::string& className) { return *this << uint8_t{2} << className; }
    // A new TestNode up to its link count.
    Bytes& node(const std::string& name, uint32_t links) {
        return newObject("TestNode") << name << int32_t{0} << links;
    }
    operator std::string() const { return out.str(); }
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
struct TempPath {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("tarnel-test-" + std::to_string(::getpid()) + "-" +
                                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    TempPath() { std::filesystem::remove(path); }
    ~TempPath() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    std::string str() const { return path.string(); }
    std::string contents() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
};
