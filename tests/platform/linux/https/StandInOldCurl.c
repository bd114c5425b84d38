// libcurl, but for the age that it gives itself.

#include <curl/curl.h>

curl_version_info_data *curl_version_info(CURLversion asked) {
  static curl_version_info_data old = {
      .age = CURLVERSION_FIRST, .version = "7.86.9", .version_num = 0x075609};
  return asked == CURLVERSION_NOW ? &old : 0;
}
