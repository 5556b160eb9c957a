/* A host in C, without a window: asks on the terminal, takes three samples and shares them. */

#include <stdio.h>
#include <tarvex-glib.h>

static GMainLoop *loop;

static void
shared (GObject *client, GAsyncResult *result, gpointer data)
{
  g_autoptr (GError) error = NULL;

  if (!tarvex_client_share_finish (TARVEX_CLIENT (client), result, &error))
    g_printerr ("%s\n", error->message);
  g_main_loop_quit (loop);
}

static void
counted (TarvexClient *client, GParamSpec *property, gpointer data)
{
  g_print ("%" G_GINT64_FORMAT " samples\n", tarvex_client_get_count (client));
  if (tarvex_client_get_count (client) < 3)
    return;
  tarvex_client_stop_all (client);
  tarvex_client_share_async (client, TRUE, shared, NULL);
}

static gboolean
start (TarvexClient *client)
{
  g_autoptr (GError) error = NULL;

  if (tarvex_client_start (client, TARVEX_READER_AMBIENT_LIGHT, 1, NULL, &error))
    return TRUE;
  g_printerr ("%s\n", error->message);
  return FALSE;
}

static void
decided (TarvexConsentRequest *request, gboolean consented, TarvexClient *client)
{
  if (!consented || !start (client))
    g_main_loop_quit (loop);
}

int
main (void)
{
  const TarvexReader readers[] = { TARVEX_READER_AMBIENT_LIGHT };
  TarvexClient *client = tarvex_client_get_default ();
  g_autoptr (TarvexConsentRequest) request =
      tarvex_consent_request_new ("Light Study", "Why we ask.", readers, G_N_ELEMENTS (readers), NULL);

  g_object_set (client, "application-id", "org.tarvex.CHost", NULL);
  g_signal_connect (client, "notify::count", G_CALLBACK (counted), NULL);
  g_signal_connect (request, "decided", G_CALLBACK (decided), client);
  loop = g_main_loop_new (NULL, FALSE);
  if (!start (client))
    {
      g_autoptr (GError) error = NULL;

      g_print ("May Light Study measure the ambient light? (y/n) ");
      if (!(getchar () == 'y' ? tarvex_consent_request_consent (request, &error)
                              : tarvex_consent_request_cancel (request, &error)))
        g_error ("%s", error->message);
    }
  g_main_loop_run (loop);
  g_main_loop_unref (loop);
  return 0;
}
