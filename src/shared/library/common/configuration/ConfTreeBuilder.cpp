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
constexpr size_t longestShown = 40; // characters of a token
constexpr int deepestBlock = 200;   // a file that nests deeper is damaged, and must not exhaust the stack

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

void ConfTreeBuilder::build(DOMNode& root) {
    if (readEntries(root, 0))
        return;
    sink_.error(tokenLine_, "a \"}\" closes nothing, and ends the reading",
                "remove it, or open the block it is to close");
}

/// Tells of a text or a comment that has no end, and of letters that separate words like blanks.
void ConfTreeBuilder::tellToken() const {
    const std::string& text = token_.getText();
    const char first = text.front();
    if ((first == '"' || first == '\'') && (text.size() < 2 || text.back() != first))
        sink_.error(tokenLine_, "a quoted text never ends", "close it with " + std::string(1, first));
    else if ((first == '"' || first == '\'') && text.find('\n') != std::string::npos)
        sink_.warning(tokenLine_, "a quoted text goes on in the next line", "close it where the value ends");
    else if (text.starts_with("/*") && (text.size() < 4 || !text.ends_with("*/")))
        sink_.error(tokenLine_, "a comment never ends", "close it with */");
    else if (!token_.isSignificant() && static_cast<unsigned char>(first) >= 0x80 && tokenLine_ > 1)
        sink_.warning(tokenLine_, "a letter beyond ASCII outside quotes separates words like a blank",
                      "put the value in quotes");
}

void ConfTreeBuilder::tellValue() const {
    const std::string& text = token_.getText();
    for (size_t i = 0; i + 1 < text.size(); ++i)
        if (text[i] == '\\' && text[++i] != '\\') {
            sink_.warning(tokenLine_, "a single backslash in a value takes the next character away",
                          "write it twice, or / in a path");
            return;
        }
}

void ConfTreeBuilder::tellRepeated(const DOMNode& parent, const DOMNode& node) const {
    for (const DOMNode* child = parent.getFirstChild(); child; child = child->getNextSibling())
        if (child->getName() == node.getName()) {
            sink_.warning(node.getLine(),
                          "\"" + node.getName() + "\" is given twice side by side; only that of line " +
                              std::to_string(child->getLine()) + " counts",
                          "put both into one block");
            return;
        }
}

void ConfTreeBuilder::tellCutOff(const DOMNode* node) const {
    if (node)
        sink_.error(node->getLine(), "the entry \"" + node->getName() + "\" isn't whole at the end of the file",
                    "write NAME (TYPE) = VALUE { }");
}

void ConfTreeBuilder::fail(std::string_view missing, int32_t sourceLine) {
    logger_.debug(1, missing);
    const size_t begin = missing.find("Missing");
    const std::string what(missing.substr(begin, missing.size() - begin - 1)); // without the full stop
    const auto shown = [](const std::string& text) { return "\"" + text.substr(0, longestShown) + "\""; };
    sink_.error(lastLine_,
                what + " between " + shown(lastText_) + " and " + shown(token_.getText()) + ", which ends the reading",
                "write NAME (TYPE) = VALUE { }, with quotes around a value that holds blanks or = ( ) { }");
    throw ConfigException(CF_CONF, "", __FILE__, sourceLine);
}

/// Takes the next token that means something; blanks, newlines and comments are passed over.
bool ConfTreeBuilder::nextToken() {
    lastText_ = token_.getText();
    lastLine_ = tokenLine_;
    while (tokenizer_.nextToken(token_)) {
        tokenLine_ = nextLine_;
        nextLine_ += static_cast<int32_t>(StringSearcher::countChar('\n', token_.getText()));
        tellToken();
        if (token_.isSignificant() && token_.getText() != "\n" && !ConfSearcher::isComment(token_.getText()))
            return true;
    }
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
            node = std::make_unique<DOMNode>(text, tokenLine_);
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
            tellValue();
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
            const int32_t opened = tokenLine_;
            const bool textEnded = readEntries(*node, depth + 1);
            if (textEnded)
                sink_.error(opened, "the block of \"" + node->getName() + "\" never closes", "close it with }");
            tellRepeated(parent, *node);
            parent.addChild(std::exchange(node, nullptr));
            if (textEnded)
                return true;
            state = State::name;
            break;
        }
        }
    }
    tellCutOff(node.get());
    return true;
}

void ConfReader::buildDOMTree(const std::string& fileName, const FindingSink& sink) {
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
        builder = std::make_unique<ConfTreeBuilder>(text, *logger_, sink);
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
        sink.error(1, "the configuration file can't be read (" + failure.getCodeText() + ")",
                   "make it readable, or name another with -c");
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
