#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// A URL or relative reference by RFC 3986, kept exactly as it was written.
///
/// An immutable value; copy it freely between threads.
class Url {
 public:
  /// One `name=value` of a query; without a value the name stands alone.
  struct QueryItem {
    std::string_view name;
    std::optional<std::string_view> value;
  };

  /// Absent when `text` breaks the grammar: a space, "%" without two digits, non-ASCII letters and
  /// the like. Nothing is normalised.
  [[nodiscard]] static std::optional<Url> parse(std::string text);

  [[nodiscard]] const std::string& text() const noexcept { return text_; }

  /// The scheme as written, without ":"; empty in a relative reference.
  [[nodiscard]] std::string_view scheme() const noexcept { return view(scheme_); }

  /// The host name as written, without port; an IPv6 address keeps its brackets. Empty when there
  /// is none.
  [[nodiscard]] std::string_view host() const noexcept { return view(host_); }

  /// The port as written, without ":"; empty when there is none.
  [[nodiscard]] std::string_view port() const noexcept { return view(port_); }

  /// The path as written; may be empty.
  [[nodiscard]] std::string_view encodedPath() const noexcept { return view(path_); }

  /// The query as written, without "?"; empty when there is none.
  [[nodiscard]] std::string_view encodedQuery() const noexcept { return view(query_); }

  /// This URL with `items`, in that order, as its whole query. Names and values are encoded so
  /// that every byte outside A-Z a-z 0-9 - . _ ~ is escaped, which every server reads alike.
  /// Absent when the result is no URL.
  [[nodiscard]] std::optional<Url> withQuery(std::initializer_list<QueryItem> items) const;

  friend bool operator==(const Url& a, const Url& b) noexcept { return a.text_ == b.text_; }

 private:
  /// A piece of the text; positions, so that a copied URL stays valid.
  struct Piece {
    std::size_t begin = 0;
    std::size_t length = 0;
  };

  Url() = default;
  [[nodiscard]] std::string_view view(Piece piece) const noexcept {
    return std::string_view(text_).substr(piece.begin, piece.length);
  }

  std::string text_;
  Piece scheme_;
  Piece host_;
  Piece port_;
  Piece path_;
  Piece query_;
};

}  // namespace orvane
