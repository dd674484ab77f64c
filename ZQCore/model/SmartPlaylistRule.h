#pragma once

#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace zq {

/// One rule of a smart playlist: a track property (field), a comparison (action) and a text
/// or a numeric range. The framework keeps and prints rules; it does not evaluate them.
class ZQ_EXPORT SmartPlaylistRule {
public:
    /// A rule from a rule dictionary ("fieldType", "actionType", and "ruleValue" or the range
    /// keys "fromValue", "toValue", "fromUnits", "toUnits", "fromDate", "toDate"). The field's
    /// kind decides which keys are read.
    static std::shared_ptr<SmartPlaylistRule> initWithOptions(const Value::Dictionary& options);

    /// Field kinds. String fields must stay identical to the rule-blob parser's list.
    static bool isStringField(std::int32_t field);
    static bool isNumericField(std::int32_t field);
    static bool isDateStampField(std::int32_t field);

    bool isStringRule() const { return isStringRule_; }
    bool numericRuleIsDateStamp() const { return numericRuleIsDateStamp_; }
    std::int32_t field() const { return fieldType_; }
    std::int32_t action() const { return actionType_; }
    std::uint64_t fromValue() const { return fromValue_; }
    std::uint64_t toValue() const { return toValue_; }
    std::uint64_t fromUnit() const { return fromUnit_; }
    std::uint64_t toUnit() const { return toUnit_; }
    std::int64_t fromDate() const { return fromDate_; }
    std::int64_t toDate() const { return toDate_; }
    const std::optional<std::string>& ruleValue() const { return ruleValue_; }

    /// The field's display name ("" for codes without one, field 2 included).
    std::string fieldString() const;
    /// The comparison in words ("" for codes without a phrase).
    std::string ruleActionString() const;
    /// The rule in words: "<field> <action> <text>", "<field> <action> <n>" or
    /// "<field> <action> <from> and <to>".
    std::string description() const;

private:
    SmartPlaylistRule() = default;

    bool isStringRule_ = false;
    bool numericRuleIsDateStamp_ = false;
    std::int32_t fieldType_ = 0;
    std::int32_t actionType_ = 0;
    std::uint64_t fromValue_ = 0;
    std::uint64_t toValue_ = 0;
    std::uint64_t fromUnit_ = 0;
    std::uint64_t toUnit_ = 0;
    std::int64_t fromDate_ = 0;
    std::int64_t toDate_ = 0;
    std::optional<std::string> ruleValue_;
};

} // namespace zq
