#pragma once

/* KXPublisher for C, and through GObject Introspection for Vala, Python, JavaScript and others. C++ hosts
 * include KXPublisher/KXPublisher.hpp instead and need nothing of this. */

#include <KXPublisher/gobject/kx-constants.h>
#include <KXPublisher/gobject/kx-options.h>
#include <glib-object.h>

G_BEGIN_DECLS

#define KX_TYPE_PUBLISHER (kx_publisher_get_type())

KX_PUBLIC G_DECLARE_FINAL_TYPE(KxPublisher, kx_publisher, KX, PUBLISHER, GObject)

KX_PUBLIC gboolean kx_publisher_set_options(KxOptions *options) G_GNUC_WARN_UNUSED_RESULT;
KX_PUBLIC void kx_publisher_set_service_paths(const char *login, const char *message);

KX_PUBLIC KxPublisher *kx_publisher_get_default(const char *api_token, const char *hostname);

KX_PUBLIC void kx_publisher_enable_debugging(KxPublisher *self);
KX_PUBLIC void kx_publisher_disable_debugging(KxPublisher *self);
KX_PUBLIC char *kx_publisher_dup_message(KxPublisher *self) G_GNUC_WARN_UNUSED_RESULT;

KX_PUBLIC char *kx_publisher_dup_diagnosis(void) G_GNUC_WARN_UNUSED_RESULT;

KX_PUBLIC void kx_publisher_did_enter_background(void);
KX_PUBLIC void kx_publisher_will_enter_foreground(void);

G_END_DECLS
