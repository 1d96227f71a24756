#pragma once

#include "shared/library/common/errors/FileException.h"
#include "shared/library/logger/LoggerUnit.h"

#include <utility>

namespace Velmor {

/// What a class or source file writes through. It passes messages on while a unit is set and alive, and is silent
/// otherwise; parameters are put together only for a line that will be written. A debug file that can't be written
/// costs the line and nothing more, which standard error tells once. Set before the threads start.
class Logger {
public:
    void set(const SmartPointer<LoggerUnit>& unit) {
        if (!unit_.equals(unit))
            unit_ = unit;
    }
    void release() { unit_.release(); }
    void destroy() { unit_.destroy(); }
    bool isSet() const { return !unit_.isNull(); }
    const SmartPointer<LoggerUnit>& unit() const { return unit_; }

    /// Whether a debug line of that level would be written.
    bool passes(int32_t level) const { return level <= LoggerUnit::getDebugLevel() && isSet(); }

    template <typename... Parameters>
    void debug(int32_t level, std::string_view format, const Parameters&... parameters) const {
        if (!passes(level))
            return;
        write([&](LoggerUnit& unit) {
            if constexpr (sizeof...(parameters) == 0)
                unit.debug(level, format);
            else
                unit.debug(level, format, stream(parameters...));
        });
    }

    template <typename... Parameters>
    void notice(int32_t id, const Parameters&... parameters) const {
        write([&](LoggerUnit& unit) { unit.notice(id, stream(parameters...)); });
    }
    template <typename... Parameters>
    void warning(int32_t id, const Parameters&... parameters) const {
        write([&](LoggerUnit& unit) { unit.warning(id, stream(parameters...)); });
    }
    template <typename... Parameters>
    void error(int32_t id, const Parameters&... parameters) const {
        write([&](LoggerUnit& unit) { unit.error(id, stream(parameters...)); });
    }
    template <typename... Parameters>
    void critical(int32_t id, const Parameters&... parameters) const {
        write([&](LoggerUnit& unit) { unit.critical(id, stream(parameters...)); });
    }
    template <typename... Parameters>
    void fatal(int32_t id, const Parameters&... parameters) const {
        write([&](LoggerUnit& unit) { unit.fatal(id, stream(parameters...)); });
    }

private:
    template <typename... Parameters>
    static ParamStream stream(const Parameters&... parameters) {
        ParamStream result;
        (void)(result << ... << parameters);
        return result;
    }

    template <typename Call>
    void write(Call&& call) const {
        if (!isSet())
            return;
        try {
            std::forward<Call>(call)(*unit_);
        } catch (const FileException& failure) { // usage counts for more than its log
            LoggerUnit::tellLost(failure);
        }
    }

    SmartPointer<LoggerUnit> unit_;
};

} // namespace Velmor
