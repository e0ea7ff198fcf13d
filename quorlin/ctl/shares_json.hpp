// Shares read from JSON in the vocabulary the tool writes: an array of share objects keyed by
// the element names of the service's XML ("Name", "Type", "Path", "AccessList" of accessors).
#ifndef QUORLIN_CTL_SHARES_JSON_HPP
#define QUORLIN_CTL_SHARES_JSON_HPP

#include <memory>
#include <string>
#include <string_view>

#include "quorlin/records/records.hpp"

namespace quorlin::ctl {

/// The shares of `text`, or null with `error` saying what is wrong: where the JSON breaks (its
/// line and column), or which item and field is not a share's.
std::unique_ptr<ShareList> shares_from_json(std::string_view text, std::string& error);

}  // namespace quorlin::ctl

#endif  // QUORLIN_CTL_SHARES_JSON_HPP
