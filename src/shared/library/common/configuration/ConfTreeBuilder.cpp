#include "shared/library/common/configuration/ConfTreeBuilder.h"

#include "shared/library/common/configuration/ConfReader.h"
#include "shared/library/common/configuration/ConfigurationMessages.h"
#include "shared/library/common/errors/ConfigException.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/logger/Logger.h"

#include <utility>

namespace Velmor {

namespace {
constexpr int deepestBlock = 200; // a file that nests deeper is damaged, and must not exhaust the stack

enum class State : uint8_t { name, open, type, close, equals, value, block };

std::string readWholeFile(const std::string& fileName) {
    FilePlain file(fileName);
    file.open(FileBase::ACCESS_READ);
    std::string text;
    if (const uint64_t size = file.size(); size > 0)
        file.read(text, static_cast<size_t>(size));
    file.close();
    return text;
}
} // namespace

size_t ConfTreeBuilder::line() const {
    return StringSearcher::countChar('\n', text_, 0, tokenizer_.getPosition()) + 1;
}

void ConfTreeBuilder::fail(std::string_view missing, int32_t sourceLine) {
    logger_.debug(1, missing);
    throw ConfigException(CF_CONF, "", __FILE__, sourceLine);
}

/// Takes the next token that means something; blanks, newlines and comments are passed over.
bool ConfTreeBuilder::nextToken() {
    while (tokenizer_.nextToken(token_))
        if (token_.isSignificant() && token_.getText() != "\n" && !ConfSearcher::isComment(token_.getText()))
            return true;
    return false;
}

/// Reads entries up to the end of their block, which gives false, or of the text, which gives true. An entry joins its
/// parent only when its block has been read.
bool ConfTreeBuilder::readEntries(DOMNode& parent, int depth) {
    if (depth > deepestBlock)
        fail("ConfReader: Missing '}'.", __LINE__);
    State state = State::name;
    std::unique_ptr<DOMNode> node;
    while (nextToken()) {
        const std::string& text = token_.getText();
        switch (state) {
        case State::name:
            if (text == "}")
                return false;
            node = std::make_unique<DOMNode>(text);
            state = State::open;
            break;
        case State::open:
            if (text != "(")
                fail("ConfReader: Missing '('.", __LINE__);
            state = State::type;
            break;
        case State::type:
            if (text != ")")
                node->setType(text);
            state = text == ")" ? State::equals : State::close;
            break;
        case State::close:
            if (text != ")")
                fail("ConfReader: Missing ')'.", __LINE__);
            state = State::equals;
            break;
        case State::equals:
            if (text != "=")
                fail("ConfReader: Missing '='.", __LINE__);
            state = State::value;
            break;
        case State::value: {
            std::string value = text;
            StringSearcher::unquote(value);
            if (!value.empty())
                node->setValue(value);
            state = State::block;
            break;
        }
        case State::block: {
            if (text != "{")
                fail("ConfReader: Missing '{'.", __LINE__);
            const bool textEnded = readEntries(*node, depth + 1);
            parent.addChild(std::exchange(node, nullptr));
            if (textEnded)
                return true;
            state = State::name;
            break;
        }
        }
    }
    return true;
}

void ConfReader::buildDOMTree(const std::string& fileName) {
    logger_->debug(2, "ConfReader: Building DOM tree from file \"%s\"...", fileName);
    lastError_.clear();
    if (!monopoly_.enforce()) {
        logger_->error(ConfigurationMessage::buildDropped);
        return;
    }
    std::string text;
    std::unique_ptr<ConfTreeBuilder> builder;
    try {
        text = readWholeFile(fileName);
        root_ = std::make_unique<DOMNode>("Root");
        builder = std::make_unique<ConfTreeBuilder>(text, *logger_);
        builder->build(*root_);
        logger_->debug(2, "ConfReader: DOM tree built.");
    } catch (ConfigException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        logger_->error(ConfigurationMessage::fileMistake, fileName, failure.getCodeText());
        logger_->debug(1, "ConfReader: %s, line %i.", failure.getFullDescription(), builder->line());
        lastError_ = "The configuration file \"" + fileName + "\" has a mistake in line " +
                     std::to_string(builder->line()) + "; correct it.";
    } catch (FileException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        logger_->error(ConfigurationMessage::fileUnreadable, fileName, failure.getCodeText());
        logger_->debug(1, "ConfReader: %s", failure.getFullDescription());
        lastError_ =
            "The configuration file \"" + fileName + "\" can't be read; make it readable, or name another with -c.";
    } catch (...) {
        logger_->error(ConfigurationMessage::fileUnreadable, fileName, "Unknown");
        logger_->debug(1, "ConfReader: Unknown error while building DOM tree from file \"%s\".", fileName);
        lastError_ = "The configuration file \"" + fileName + "\" can't be read.";
    }
    monopoly_.relax();
}

} // namespace Velmor
