// A library that has one of curl's functions.

void curl_easy_cleanup(void *easy);
void curl_easy_cleanup(void *easy) {
  (void)easy;
}
