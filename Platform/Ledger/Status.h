#pragma once

#include "Platform/Vel/String.h"

#include <utility>

/// Purpose: the outcome of an operation that may fail for reasons outside of this process (a full disk, a
/// damaged file, a mount that does not fit). Such failures are values, not exceptions: whoever asked decides.
namespace Ledger {

/// Success, or a text that names what failed, where and why, in words for an operator.
class [[nodiscard]] Status {
 public:
   Status() = default;
   static Status failure( Vel::String text ) {
      Status result;
      result.text_ = text.empty() ? Vel::String( "failed" ) : std::move( text );
      return result;
   }

   /// A failure that stays until somebody takes what is there away: another version has written it, or it is damaged.
   static Status unusable( Vel::String text ) {
      Status result = failure( std::move( text ) );
      result.unusable_ = true;
      return result;
   }

   bool ok() const { return text_.empty(); }
   bool isUnusable() const { return unusable_; }
   /// Empty on success.
   const Vel::String & text() const { return text_; }

   friend bool operator==( const Status &, const Status & ) = default;

 private:
   Vel::String text_;
   bool unusable_ = false;
};

} // namespace Ledger
