// The GTK 3 counterpart of the Qt test client: one window with an entry that prints, one
// line each, "text TEXT" after every change and "key KEYVAL" for every key press (in hex).
#include <cstdio>
#include <gtk/gtk.h>

namespace {

void on_changed(GtkEditable *editable, gpointer)
{
    std::printf("text %s\n", gtk_entry_get_text(GTK_ENTRY(editable)));
    std::fflush(stdout);
}

gboolean on_key_press(GtkWidget *, GdkEventKey *event, gpointer)
{
    std::printf("key %#x\n", event->keyval);
    std::fflush(stdout);
    return FALSE;
}

} // namespace

int main(int argc, char **argv)
{
    gtk_init(&argc, &argv);
    GtkWidget *window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "tide gtk client");
    gtk_window_set_default_size(GTK_WINDOW(window), 320, 200);
    GtkWidget *entry = gtk_entry_new();
    gtk_container_add(GTK_CONTAINER(window), entry);
    g_signal_connect(entry, "changed", G_CALLBACK(&on_changed), NULL);
    g_signal_connect(entry, "key-press-event", G_CALLBACK(&on_key_press), NULL);
    g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), NULL);
    gtk_widget_show_all(window);
    gtk_main();
    return 0;
}
