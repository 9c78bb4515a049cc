#include "Api/Error.h"

namespace Api {

const char * stringValue( ErrorCode code ) {
   switch ( code ) {
   case ErrorCode::badRequest:
      return "bad-request";
   case ErrorCode::notFound:
      return "not-found";
   case ErrorCode::notAllowed:
      return "method-not-allowed";
   case ErrorCode::conflict:
      return "conflict";
   case ErrorCode::misdirected:
      return "misdirected-request";
   case ErrorCode::tooLarge:
      return "too-large";
   case ErrorCode::unavailable:
      return "unavailable";
   case ErrorCode::needsForce:
      return "needs-force";
   case ErrorCode::internal:
      return "internal";
   }
   return "internal";
}

int httpStatus( ErrorCode code ) {
   switch ( code ) {
   case ErrorCode::badRequest:
      return 400;
   case ErrorCode::notFound:
      return 404;
   case ErrorCode::notAllowed:
      return 405;
   case ErrorCode::conflict:
      return 409;
   case ErrorCode::misdirected:
      return 421;
   case ErrorCode::tooLarge:
      return 413;
   case ErrorCode::unavailable:
      return 503;
   case ErrorCode::needsForce:
      return 428;
   case ErrorCode::internal:
      return 500;
   }
   return 500;
}

} // namespace Api
