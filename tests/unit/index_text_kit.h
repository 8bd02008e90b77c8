#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "index/index_format.h"
#include "tests/support/index_peer.h"

/// Texts out of few pieces, always the same ones.
class RandomTexts {
 public:
  RandomTexts(std::uint32_t seed, std::vector<std::string> pieces)
      : m_random(seed), m_pieces(std::move(pieces)) {}

  std::string next(std::size_t most_pieces) {
    std::string text;
    for (std::size_t left = m_random() % (most_pieces + 1); left != 0; --left) {
      text += m_pieces[m_random() % m_pieces.size()];
    }
    return text;
  }

 private:
  std::mt19937 m_random;
  std::vector<std::string> m_pieces;
};

/// The lines of one key, as a question for it goes through them.
inline std::vector<plain_index::line> lines_of_key(const std::string& text,
                                                  const std::string& key) {
  std::vector<plain_index::line> result;
  index_format::LinesOfKey lines(text, key);
  index_format::Line line;
  while (lines.next(line)) result.push_back({std::string(line.key), std::string(line.stored)});
  EXPECT_FALSE(lines.next(line)) << plain_index::shown(text);
  return result;
}
