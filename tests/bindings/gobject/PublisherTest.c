/* What a host in C can do, and what it may do wrong. */
#include <KXPublisher/KXConstants.h>
#include <KXPublisher/gobject/kx-publisher.h>
#include <gio/gio.h>
#include <string.h>

/* In SeenFromCpp.cpp. */
long log_level_as_cpp_sees_it(void);
long background_refresh_status_as_cpp_sees_it(void);

static KxPublisher *start(void) {
  return kx_publisher_get_default("T", "localhost:1");
}

/* ---- KxOptions */

static void options_are_those_of_a_host_that_sets_none(void) {
  g_autoptr(KxOptions) options = kx_options_new();
  g_assert_null(kx_options_get_advertising_identifier(options));
  g_assert_true(kx_options_get_advertising_tracking_enabled(options));
  g_assert_null(kx_options_get_certificate_authority_file(options));
  g_assert_cmpint(kx_options_get_background_refresh_status(options), ==,
                  KX_BACKGROUND_REFRESH_STATUS_AVAILABLE);
  g_assert_null(kx_options_get_application_identifier(options));
}

static void options_are_properties(void) {
  g_autoptr(KxOptions) options =
      g_object_new(KX_TYPE_OPTIONS, "advertising-identifier", "an identifier", "advertising-tracking-enabled",
                   FALSE, "certificate-authority-file", "a file", "background-refresh-status",
                   KX_BACKGROUND_REFRESH_STATUS_DENIED, "application-identifier", "org.example.Host", NULL);
  g_autofree char *identifier = NULL;
  g_autofree char *file = NULL;
  g_autofree char *application = NULL;
  gboolean enabled = TRUE;
  KxBackgroundRefreshStatus status = KX_BACKGROUND_REFRESH_STATUS_AVAILABLE;
  g_object_get(options, "advertising-identifier", &identifier, "advertising-tracking-enabled", &enabled,
               "certificate-authority-file", &file, "background-refresh-status", &status,
               "application-identifier", &application, NULL);
  g_assert_cmpstr(identifier, ==, "an identifier");
  g_assert_false(enabled);
  g_assert_cmpstr(file, ==, "a file");
  g_assert_cmpstr(application, ==, "org.example.Host");
  g_assert_cmpstr(kx_options_get_application_identifier(options), ==, "org.example.Host");
  g_assert_cmpint(status, ==, KX_BACKGROUND_REFRESH_STATUS_DENIED);
  g_assert_cmpstr(kx_options_get_advertising_identifier(options), ==, "an identifier");
  g_assert_false(kx_options_get_advertising_tracking_enabled(options));
  g_assert_cmpstr(kx_options_get_certificate_authority_file(options), ==, "a file");
  g_assert_cmpint(kx_options_get_background_refresh_status(options), ==, KX_BACKGROUND_REFRESH_STATUS_DENIED);

  kx_options_set_advertising_identifier(options, NULL);
  g_assert_null(kx_options_get_advertising_identifier(options));
}

static void note(GObject *object, GParamSpec *property, gpointer notes) {
  (void)object;
  g_string_append_printf(notes, "%s ", property->name);
}

static void set_all(KxOptions *options) {
  /* Its own text, too: it must not be freed before it is copied. */
  kx_options_set_advertising_identifier(options, "an identifier");
  kx_options_set_advertising_identifier(options, kx_options_get_advertising_identifier(options));
  kx_options_set_advertising_identifier(options, kx_options_get_advertising_identifier(options) + 3);
  kx_options_set_advertising_tracking_enabled(options, FALSE);
  kx_options_set_certificate_authority_file(options, "a file");
  kx_options_set_background_refresh_status(options, KX_BACKGROUND_REFRESH_STATUS_RESTRICTED);
  kx_options_set_application_identifier(options, "org.example.Host");
  g_assert_cmpstr(kx_options_get_advertising_identifier(options), ==, "identifier");
}

static void options_notify_of_changes_only(void) {
  g_autoptr(KxOptions) options = kx_options_new();
  g_autoptr(GString) notes = g_string_new(NULL);
  g_signal_connect(options, "notify", G_CALLBACK(note), notes);
  set_all(options);
  kx_options_set_advertising_tracking_enabled(options, FALSE);
  kx_options_set_certificate_authority_file(options, "a file");
  kx_options_set_background_refresh_status(options, KX_BACKGROUND_REFRESH_STATUS_RESTRICTED);
  g_assert_cmpstr(notes->str, ==,
                  "advertising-identifier advertising-identifier advertising-tracking-enabled "
                  "certificate-authority-file background-refresh-status application-identifier ");
  kx_options_set_advertising_tracking_enabled(options, 2); /* as true as TRUE */
  g_assert_cmpint(kx_options_get_advertising_tracking_enabled(options), ==, TRUE);
}

/* ---- KxPublisher */

static void publisher_is_one_for_everybody(void) {
  KxPublisher *publisher = start();
  g_assert_true(KX_IS_PUBLISHER(publisher));
  g_assert_true(kx_publisher_get_default("another", "other") == publisher);
  g_assert_true(kx_publisher_get_default(NULL, NULL) == publisher);
  /* Hosts' references come and go. */
  g_object_unref(g_object_ref(publisher));
  g_assert_cmpuint(G_OBJECT(publisher)->ref_count, ==, 1);
}

static gboolean message_has(const char *part) {
  g_autofree char *message = kx_publisher_dup_message(start());
  g_assert_nonnull(message);
  return strstr(message, part) != NULL;
}

static void publisher_takes_options_before_its_start_only(void) {
  g_autoptr(KxOptions) options =
      g_object_new(KX_TYPE_OPTIONS, "advertising-identifier", "first", "advertising-tracking-enabled", FALSE,
                   "background-refresh-status", KX_BACKGROUND_REFRESH_STATUS_DENIED, "application-identifier",
                   "org.example.PlainHost", NULL);
  g_assert_true(kx_publisher_set_options(options));
  kx_options_set_advertising_identifier(options, "second"); /* of which the library hears nothing */
  start();
  while (!message_has("\"ifa\"")) g_main_context_iteration(NULL, FALSE);
  g_assert_true(message_has("\"ifa\":\"first\""));
  g_assert_true(message_has("\"dnt\":1"));
  while (!message_has("\"bundleId\"")) g_main_context_iteration(NULL, FALSE);
  g_assert_true(message_has("\"bundleId\":\"org.example.PlainHost\""));
  g_assert_cmpint(background_refresh_status_as_cpp_sees_it(), ==, KX_BACKGROUND_REFRESH_STATUS_DENIED);
  g_assert_false(kx_publisher_set_options(options));
}

static void publisher_makes_its_message_anew(void) {
  g_autofree char *one = kx_publisher_dup_message(start());
  g_autofree char *other = kx_publisher_dup_message(start());
  g_assert_true(g_str_has_prefix(one, "{\""));
  g_assert_true(g_str_has_suffix(one, "}"));
  g_assert_nonnull(strstr(one, "\"" KX_DATA_KEY_PUBLISHER_SDK_NAME "\":\"" KX_PUBLISHER_SDK_NAME "\""));
  g_assert_cmpstr(one, !=, other); /* each has an identifier of its own */
}

static void publisher_message_is_a_property(void) {
  g_autofree char *message = NULL;
  g_object_get(start(), "message", &message, NULL);
  g_assert_nonnull(strstr(message, "\"" KX_DATA_KEY_EVENT_ID "\":"));
}

static void publisher_takes_absent_arguments(void) {
  KxPublisher *publisher = kx_publisher_get_default(NULL, NULL);
  g_assert_nonnull(publisher);
  g_assert_true(kx_publisher_get_default("T", "localhost:1") == publisher);
}

static void expect_criticals(int count) {
  while (count-- > 0) g_test_expect_message("KXPublisher", G_LOG_LEVEL_CRITICAL, "*assertion*failed*");
}

static void publisher_made_by_a_host_does_nothing(void) {
  g_autoptr(KxPublisher) publisher = g_object_new(KX_TYPE_PUBLISHER, NULL);
  expect_criticals(5);
  kx_publisher_enable_debugging(publisher);
  kx_publisher_disable_debugging(publisher);
  g_assert_null(kx_publisher_dup_message(publisher));
  g_assert_null(kx_publisher_dup_message(NULL));
  g_assert_false(kx_publisher_set_options(NULL));
  g_test_assert_expected_messages();
}

static void publisher_debugging_can_be_switched(void) {
  KxPublisher *publisher = start();
  const long before = log_level_as_cpp_sees_it();
  kx_publisher_enable_debugging(publisher);
  g_assert_cmpint(log_level_as_cpp_sees_it(), >, before);
  kx_publisher_disable_debugging(publisher);
  g_assert_cmpint(log_level_as_cpp_sees_it(), ==, before);
}

static void publisher_knows_the_lifecycle_before_its_start(void) {
  kx_publisher_will_enter_foreground();
  kx_publisher_did_enter_background();
  kx_publisher_will_enter_foreground();
  g_assert_nonnull(start());
}

static void publisher_sets_the_services_paths(void) {
  g_assert_cmpstr(kxPublisherApiPathGetToken, ==, KX_PUBLISHER_API_PATH_GET_TOKEN);
  g_assert_cmpstr(kxPublisherFeedPathLogData, ==, KX_PUBLISHER_FEED_PATH_LOG_DATA);
  char login[] = "/login";
  char message[] = "/message";
  kx_publisher_set_service_paths(login, message);
  login[1] = message[1] = 'x'; /* they are copied */
  g_assert_cmpstr(kxPublisherApiPathGetToken, ==, "/login");
  g_assert_cmpstr(kxPublisherFeedPathLogData, ==, "/message");
  kx_publisher_set_service_paths(NULL, NULL);
  g_assert_null(kxPublisherApiPathGetToken);
  g_assert_null(kxPublisherFeedPathLogData);
}

static void publisher_tells_why_nothing_arrives(void) {
  g_autofree char *before = kx_publisher_dup_diagnosis();
  g_assert_nonnull(strstr(before, "The host has not made its call."));
  start();
  g_autofree char *after = kx_publisher_dup_diagnosis();
  g_assert_nonnull(strstr(after, "Publisher: made 0 s ago"));
}

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, NULL);
  g_test_add_func("/options/are-those-of-a-host-that-sets-none", options_are_those_of_a_host_that_sets_none);
  g_test_add_func("/options/are-properties", options_are_properties);
  g_test_add_func("/options/notify-of-changes-only", options_notify_of_changes_only);
  g_test_add_func("/publisher/is-one-for-everybody", publisher_is_one_for_everybody);
  g_test_add_func("/publisher/takes-options-before-its-start-only",
                  publisher_takes_options_before_its_start_only);
  g_test_add_func("/publisher/makes-its-message-anew", publisher_makes_its_message_anew);
  g_test_add_func("/publisher/message-is-a-property", publisher_message_is_a_property);
  g_test_add_func("/publisher/takes-absent-arguments", publisher_takes_absent_arguments);
  g_test_add_func("/publisher/made-by-a-host-does-nothing", publisher_made_by_a_host_does_nothing);
  g_test_add_func("/publisher/debugging-can-be-switched", publisher_debugging_can_be_switched);
  g_test_add_func("/publisher/knows-the-lifecycle-before-its-start",
                  publisher_knows_the_lifecycle_before_its_start);
  g_test_add_func("/publisher/sets-the-services-paths", publisher_sets_the_services_paths);
  g_test_add_func("/publisher/tells-why-nothing-arrives", publisher_tells_why_nothing_arrives);
  return g_test_run();
}
