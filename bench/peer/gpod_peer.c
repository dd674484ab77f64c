/* The benchmark peer: libgpod, the established reader of the same database, run as a whole
 * process on the same volume as zqpod. Built only for `make bench`; nothing of ZQCore or zqpod
 * links it.
 *
 *   gpod_peer write VOL COUNT   writes a COUNT-track iTunesDB (with a master playlist and 20
 *                               playlists) into VOL, as libgpod writes it
 *   gpod_peer parse VOL         itdb_parse, print the track and playlist counts, free, exit
 *   gpod_peer json VOL          itdb_parse, then every track field and every playlist with its
 *                               track IDs as JSON on standard output
 */

#include <gpod/itdb.h>

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* const kWords[] = {"Blue", "Night", "River", "Über", "Café", "Fire", "Stone", "Light",
                                     "Garden", "Echo", "Sølv", "Moon", "Road", "Heart", "Silent", "Golden"};

static gchar* words(GRand* rand, int count, const char* prefix, guint32 number)
{
    GString* text = g_string_new(prefix);
    for (int i = 0; i < count; ++i)
        g_string_append_printf(text, " %s", kWords[g_rand_int_range(rand, 0, G_N_ELEMENTS(kWords))]);
    g_string_append_printf(text, " %u", number);
    return g_string_free(text, FALSE);
}

static int writeLibrary(const char* volume, guint32 count)
{
    GError* error = NULL;
    if (!itdb_init_ipod(volume, NULL, "Bench iPod", &error)) {
        fprintf(stderr, "itdb_init_ipod: %s\n", error ? error->message : "failed");
        return 1;
    }
    Itdb_iTunesDB* itdb = itdb_parse(volume, &error);
    if (!itdb) {
        fprintf(stderr, "itdb_parse: %s\n", error ? error->message : "failed");
        return 1;
    }
    Itdb_Playlist* master = itdb_playlist_mpl(itdb);
    GRand* rand = g_rand_new_with_seed(5);
    enum { kPlaylists = 20 };
    Itdb_Playlist* lists[kPlaylists];
    for (int i = 0; i < kPlaylists; ++i) {
        gchar* name = g_strdup_printf("Playlist %d", i + 1);
        lists[i] = itdb_playlist_new(name, FALSE);
        itdb_playlist_add(itdb, lists[i], -1);
        g_free(name);
    }
    /* Dates from 1995 to 2025, so that nearly every track has dates on days of their own. */
    const gint64 from = 788918400, span = 946684800;
    for (guint32 i = 0; i < count; ++i) {
        Itdb_Track* t = itdb_track_new();
        /* Given here: left at 0, itdb_track_add searches all tracks for a free one each time. */
        t->id = i + 1;
        t->dbid = G_GUINT64_CONSTANT(0x5A51000000000000) + i;
        guint32 album = i / 12;
        t->title = words(rand, 3, "Title", i);
        t->artist = words(rand, 2, "Artist", album / 4);
        t->album = words(rand, 2, "Album", album);
        t->albumartist = g_strdup(t->artist);
        t->genre = g_strdup(kWords[album % G_N_ELEMENTS(kWords)]);
        t->composer = words(rand, 2, "Composer", album);
        t->comment = words(rand, 6, "Comment", i);
        t->grouping = words(rand, 1, "Group", album);
        t->description = words(rand, 4, "Description", i);
        t->filetype = g_strdup("MPEG audio file");
        t->keywords = words(rand, 2, "Keywords", i);
        t->sort_artist = g_strdup(t->artist);
        t->sort_title = g_strdup(t->title);
        t->sort_album = g_strdup(t->album);
        t->ipod_path = g_strdup_printf(":iPod_Control:Music:F%02u:T%07u.mp3", i % 50, i);
        t->size = 3000000 + g_rand_int_range(rand, 0, 9000000);
        t->tracklen = 120000 + g_rand_int_range(rand, 0, 300000);
        t->track_nr = (gint32)(i % 12) + 1;
        t->tracks = 12;
        t->cd_nr = 1;
        t->cds = 1;
        t->year = 1960 + (gint32)(album % 60);
        t->bitrate = 256;
        t->samplerate = 44100;
        t->rating = (guint32)g_rand_int_range(rand, 0, 6) * 20;
        t->playcount = (guint32)g_rand_int_range(rand, 0, 100);
        t->skipcount = (guint32)g_rand_int_range(rand, 0, 10);
        t->BPM = (gint16)g_rand_int_range(rand, 60, 180);
        t->mediatype = ITDB_MEDIATYPE_AUDIO;
        t->time_added = (time_t)(from + g_rand_int_range(rand, 0, (gint32)(span / 2)) * 2);
        t->time_modified = t->time_added + g_rand_int_range(rand, 0, 86400 * 30);
        t->time_played = t->time_added + g_rand_int_range(rand, 0, 86400 * 300);
        t->time_released = (time_t)(from + g_rand_int_range(rand, 0, (gint32)(span / 2)) * 2);
        t->last_skipped = 0;
        t->compilation = (album % 17) == 0;
        t->checked = 0;
        /* Prepended and turned round at the end: appending to GLib lists is linear each time. */
        itdb_track_add(itdb, t, 0);
        itdb_playlist_add_track(master, t, 0);
        int list = (int)(i % 97);
        if (list < kPlaylists)
            itdb_playlist_add_track(lists[list], t, 0);
    }
    g_rand_free(rand);
    itdb->tracks = g_list_reverse(itdb->tracks);
    for (GList* node = itdb->playlists; node; node = node->next)
        ((Itdb_Playlist*)node->data)->members = g_list_reverse(((Itdb_Playlist*)node->data)->members);
    if (!itdb_write(itdb, &error)) {
        fprintf(stderr, "itdb_write: %s\n", error ? error->message : "failed");
        return 1;
    }
    printf("%u tracks written\n", g_list_length(itdb->tracks));
    itdb_free(itdb);
    return 0;
}

static Itdb_iTunesDB* parse(const char* volume)
{
    GError* error = NULL;
    Itdb_iTunesDB* itdb = itdb_parse(volume, &error);
    if (!itdb) {
        fprintf(stderr, "itdb_parse: %s\n", error ? error->message : "failed");
        exit(1);
    }
    return itdb;
}

static void jsonString(FILE* out, const char* text)
{
    if (!text) {
        fputs("null", out);
        return;
    }
    fputc('"', out);
    for (const unsigned char* c = (const unsigned char*)text; *c; ++c) {
        if (*c == '"' || *c == '\\')
            fprintf(out, "\\%c", *c);
        else if (*c < 0x20)
            fprintf(out, "\\u%04x", *c);
        else
            fputc(*c, out);
    }
    fputc('"', out);
}

static void dumpJSON(Itdb_iTunesDB* itdb, FILE* out)
{
    fputs("{\n  \"tracks\": [", out);
    int first = 1;
    for (GList* node = itdb->tracks; node; node = node->next) {
        const Itdb_Track* t = node->data;
        fputs(first ? "\n    {" : ",\n    {", out);
        first = 0;
#define S(name) fputs("\n      \"" #name "\": ", out), jsonString(out, t->name), fputc(',', out)
#define N(name, format) fprintf(out, "\n      \"" #name "\": " format ",", t->name)
        S(title); S(ipod_path); S(album); S(artist); S(genre); S(filetype); S(comment); S(category);
        S(composer); S(grouping); S(description); S(podcasturl); S(podcastrss); S(subtitle); S(tvshow);
        S(tvepisode); S(tvnetwork); S(albumartist); S(keywords); S(sort_artist); S(sort_title);
        S(sort_album); S(sort_albumartist); S(sort_composer); S(sort_tvshow);
        N(id, "%u"); N(size, "%u"); N(tracklen, "%d"); N(cd_nr, "%d"); N(cds, "%d"); N(track_nr, "%d");
        N(tracks, "%d"); N(bitrate, "%d"); N(samplerate, "%u"); N(year, "%d"); N(volume, "%d");
        N(soundcheck, "%u"); N(rating, "%u"); N(playcount, "%u"); N(playcount2, "%u");
        N(recent_playcount, "%u"); N(BPM, "%d"); N(compilation, "%u"); N(starttime, "%u");
        N(stoptime, "%u"); N(checked, "%u"); N(dbid, "%" G_GUINT64_FORMAT); N(artwork_count, "%u");
        N(skipcount, "%u"); N(last_skipped, "%u"); N(mediatype, "%u"); N(season_nr, "%u");
        N(episode_nr, "%u"); N(mhii_link, "%u");
#undef S
#undef N
        /* Dates as text, as a reader shows them. */
        const time_t dates[] = {t->time_added, t->time_modified, t->time_played, t->time_released};
        const char* const names[] = {"time_added", "time_modified", "time_played", "time_released"};
        for (int i = 0; i < 4; ++i) {
            char text[40];
            struct tm parts;
            gmtime_r(&dates[i], &parts);
            strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
            fprintf(out, "\n      \"%s\": \"%s\"%s", names[i], text, i == 3 ? "" : ",");
        }
        fputs("\n    }", out);
    }
    fputs("\n  ],\n  \"playlists\": [", out);
    first = 1;
    for (GList* node = itdb->playlists; node; node = node->next) {
        const Itdb_Playlist* pl = node->data;
        fputs(first ? "\n    {\n      \"name\": " : ",\n    {\n      \"name\": ", out);
        first = 0;
        jsonString(out, pl->name);
        fprintf(out, ",\n      \"id\": %" G_GUINT64_FORMAT ",\n      \"master\": %s,\n      \"trackIDs\": [", pl->id,
                itdb_playlist_is_mpl((Itdb_Playlist*)pl) ? "true" : "false");
        for (GList* member = pl->members; member; member = member->next)
            fprintf(out, "%s\n        %u", member == pl->members ? "" : ",", ((Itdb_Track*)member->data)->id);
        fputs("\n      ]\n    }", out);
    }
    fputs("\n  ]\n}\n", out);
}

int main(int argc, char** argv)
{
    if (argc == 4 && strcmp(argv[1], "write") == 0)
        return writeLibrary(argv[2], (guint32)strtoul(argv[3], NULL, 10));
    if (argc == 3 && strcmp(argv[1], "parse") == 0) {
        Itdb_iTunesDB* itdb = parse(argv[2]);
        printf("%u tracks, %u playlists\n", g_list_length(itdb->tracks), g_list_length(itdb->playlists));
        itdb_free(itdb);
        return 0;
    }
    if (argc == 3 && strcmp(argv[1], "json") == 0) {
        Itdb_iTunesDB* itdb = parse(argv[2]);
        dumpJSON(itdb, stdout);
        itdb_free(itdb);
        return 0;
    }
    fprintf(stderr, "usage: gpod_peer write VOL COUNT | parse VOL | json VOL\n");
    return 2;
}
