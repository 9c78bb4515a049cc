#pragma once

#include "Agent/Control/HttpServer.h"

#include <span>
#include <string_view>

/// Purpose: the page that shows an operator what the agent does: its files, which are part of the program, as replies.
/// Owner: none, they are constants; the build makes them of Web/dist.
///
/// The page may only read: its policy lets the browser load nothing from elsewhere, run no script that is written into
/// the page, and send no form.
namespace Agent {

struct PageFile {
   std::string_view path; ///< as it is asked for: "/page.js"; "/" is the page itself
   std::string_view contentType;
   std::string_view tag; ///< changes with the content; without quotes
   std::string_view plain, gzip;
};

/// All of them.
std::span< const PageFile > pageFiles();
/// Null: there is none of that path.
const PageFile * pageFile( std::string_view path );

/// The file, or that the one that the browser has kept is still good. Compressed if whoever asks can read that.
HttpReply pageReply( const PageFile & file, const HttpRequest & request );

} // namespace Agent
