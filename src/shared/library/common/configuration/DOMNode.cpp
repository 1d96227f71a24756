#include "shared/library/common/configuration/DOMNode.h"

namespace Velmor {

DOMNode::~DOMNode() {
    // One sibling after the other: a long chain must not become a deep recursion.
    while (nextSibling_)
        nextSibling_ = std::move(nextSibling_->nextSibling_);
}

void DOMNode::setValue(std::string_view value) {
    value_.clear();
    for (size_t i = 0; i < value.size(); ++i) {
        value_ += value[i];
        if (value[i] == '\\')
            ++i;
    }
}

void DOMNode::addChild(std::unique_ptr<DOMNode> child) {
    DOMNode* added = child.get();
    (lastChild_ ? lastChild_->nextSibling_ : firstChild_) = std::move(child);
    lastChild_ = added;
}

} // namespace Velmor
