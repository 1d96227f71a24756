#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Velmor {

/// An entry of a configuration file: name, type, value and the entries in its block, in the order of the file.
class DOMNode {
public:
    explicit DOMNode(std::string_view name, int32_t line = 1) : name_(name), line_(line) {}
    DOMNode(const DOMNode&) = delete;
    DOMNode& operator=(const DOMNode&) = delete;
    virtual ~DOMNode();

    const std::string& getName() const { return name_; }
    const std::string& getType() const { return type_; } // empty if there was none
    const std::string& getValue() const { return value_; }
    int32_t getLine() const { return line_; } // where the name stands
    void setType(std::string_view type) { type_ = type; }
    /// Each backslash and the character behind it become one backslash.
    void setValue(std::string_view value);

    void addChild(std::unique_ptr<DOMNode> child);
    const DOMNode* getFirstChild() const { return firstChild_.get(); }
    const DOMNode* getNextSibling() const { return nextSibling_.get(); }

private:
    std::string name_;
    std::string type_;
    std::string value_;
    std::unique_ptr<DOMNode> firstChild_;
    std::unique_ptr<DOMNode> nextSibling_;
    int32_t line_;
    DOMNode* lastChild_ = nullptr; // where the next child goes
};

} // namespace Velmor
