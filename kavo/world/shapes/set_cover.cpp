#include "kavo/world/shapes/set_cover_internal.h"

#include <algorithm>
#include <limits>
#include <queue>
#include <tuple>

namespace kavo::internal {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

// Lists without the one element, in constant time; the order changes.
void Erase(std::uint32_t item, std::vector<std::uint32_t>& list, std::vector<std::uint32_t>& places) {
  const std::uint32_t place = places[item];
  list[place] = list.back();
  places[list[place]] = place;
  list.pop_back();
}

void Append(std::uint32_t item, std::vector<std::uint32_t>& list, std::vector<std::uint32_t>& places) {
  places[item] = static_cast<std::uint32_t>(list.size());
  list.push_back(item);
}

}  // namespace

SetCover::SetCover(std::size_t num_elements, const std::vector<std::vector<std::uint32_t>>& sets)
    : set_begins_(num_elements + 1),
      weights_(num_elements, 1),
      counts_(num_elements),
      is_chosen_(sets.size()),
      may_return_(sets.size(), 1),
      times_(sets.size()),
      chosen_places_(sets.size()),
      missing_places_(num_elements),
      random_(1) {
  random_.SetRange(0.0, 1.0);
  element_begins_.reserve(sets.size() + 1);
  for (const std::vector<std::uint32_t>& set : sets) {
    element_begins_.push_back(static_cast<std::uint32_t>(elements_.size()));
    elements_.insert(elements_.end(), set.begin(), set.end());
    gains_.push_back(static_cast<std::int64_t>(set.size()));
  }
  element_begins_.push_back(static_cast<std::uint32_t>(elements_.size()));
  for (const std::uint32_t element : elements_) {
    ++set_begins_[element + 1];
  }
  for (std::size_t i = 0; i < num_elements; ++i) {
    set_begins_[i + 1] += set_begins_[i];
  }
  sets_.resize(elements_.size());
  std::vector<std::uint32_t> next(set_begins_.begin(), set_begins_.end() - 1);
  for (std::uint32_t set = 0; set < sets.size(); ++set) {
    for (const std::uint32_t element : sets[set]) {
      sets_[next[element]++] = set;
    }
  }
  // What no set holds is nobody's task.
  for (std::uint32_t element = 0; element < num_elements; ++element) {
    if (set_begins_[element] != set_begins_[element + 1]) {
      Append(element, missing_, missing_places_);
    }
  }
}

void SetCover::choose(std::uint32_t set) {
  if (!is_chosen_[set]) {
    add(set);
  }
}

// An element that only one set may or does hold counts for others no more, or again.
void SetCover::release(std::uint32_t element, std::int64_t sign) {
  for (std::uint32_t i = set_begins_[element]; i < set_begins_[element + 1]; ++i) {
    gains_[sets_[i]] += sign * weights_[element];
    may_return_[sets_[i]] = 1;
  }
  effort_ += set_begins_[element + 1] - set_begins_[element];
}

void SetCover::add(std::uint32_t set) {
  const std::int64_t gain = gains_[set];
  for (std::uint32_t i = element_begins_[set]; i < element_begins_[set + 1]; ++i) {
    const std::uint32_t element = elements_[i];
    if (counts_[element] == 0) {
      release(element, -1);
      Erase(element, missing_, missing_places_);
    } else if (counts_[element] == 1) {
      std::uint32_t k = set_begins_[element];
      while (!is_chosen_[sets_[k]]) {
        ++k;
      }
      gains_[sets_[k]] -= weights_[element];
    }
    ++counts_[element];
  }
  gains_[set] = gain;
  is_chosen_[set] = true;
  times_[set] = ++time_;
  Append(set, chosen_, chosen_places_);
}

void SetCover::drop(std::uint32_t set) {
  const std::int64_t gain = gains_[set];
  is_chosen_[set] = false;
  times_[set] = ++time_;
  Erase(set, chosen_, chosen_places_);
  for (std::uint32_t i = element_begins_[set]; i < element_begins_[set + 1]; ++i) {
    const std::uint32_t element = elements_[i];
    --counts_[element];
    if (counts_[element] == 0) {
      release(element, 1);
      Append(element, missing_, missing_places_);
    } else if (counts_[element] == 1) {
      std::uint32_t k = set_begins_[element];
      while (!is_chosen_[sets_[k]]) {
        ++k;
      }
      gains_[sets_[k]] += weights_[element];
    }
  }
  gains_[set] = gain;
  may_return_[set] = 0;
}

void SetCover::complete() {
  std::priority_queue<std::tuple<std::int64_t, std::uint32_t>> queue;
  for (std::uint32_t set = 0; set < gains_.size(); ++set) {
    if (!is_chosen_[set] && gains_[set] > 0) {
      queue.emplace(gains_[set], set);
    }
  }
  // Gains only shrink while sets are added.
  while (!queue.empty() && !missing_.empty()) {
    const auto [gain, set] = queue.top();
    queue.pop();
    if (gain == gains_[set]) {
      add(set);
    } else if (gains_[set] > 0) {
      queue.emplace(gains_[set], set);
    }
  }
  for (std::uint32_t set = cheapest(kNone); set != kNone && gains_[set] == 0; set = cheapest(kNone)) {
    drop(set);
  }
}

std::uint32_t SetCover::cheapest(std::uint32_t except) const {
  std::uint32_t best = kNone;
  for (const std::uint32_t set : chosen_) {
    if (set != except && (best == kNone || gains_[set] < gains_[best] ||
                          (gains_[set] == gains_[best] && times_[set] < times_[best]))) {
      best = set;
    }
  }
  return best;
}

std::uint32_t SetCover::random(std::size_t count) {
  const double place = random_.Sample() * static_cast<double>(count);
  return static_cast<std::uint32_t>(std::min(place, static_cast<double>(count) - 1.0));
}

std::vector<std::uint32_t> SetCover::search(std::size_t effort) {
  std::vector<std::uint32_t> best = chosen_;
  std::uint32_t added = kNone;
  effort_ = 0;
  while (effort_ < effort) {
    while (missing_.empty() && !chosen_.empty()) {
      best = chosen_;
      drop(cheapest(kNone));
    }
    const std::uint32_t dropped = cheapest(added);
    if (dropped == kNone) {
      break;
    }
    drop(dropped);
    effort_ += chosen_.size() + 1;
    const std::uint32_t element = missing_[random(missing_.size())];
    std::uint32_t next = kNone;
    for (std::uint32_t i = set_begins_[element]; i < set_begins_[element + 1]; ++i) {
      const std::uint32_t set = sets_[i];
      if (may_return_[set] != 0 && (next == kNone || gains_[set] > gains_[next] ||
                                    (gains_[set] == gains_[next] && times_[set] < times_[next]))) {
        next = set;
      }
    }
    if (next != kNone) {
      add(next);
      added = next;
    }
    for (const std::uint32_t missing : missing_) {
      ++weights_[missing];
      for (std::uint32_t i = set_begins_[missing]; i < set_begins_[missing + 1]; ++i) {
        ++gains_[sets_[i]];
      }
      effort_ += set_begins_[missing + 1] - set_begins_[missing];
    }
  }
  return best;
}

}  // namespace kavo::internal
