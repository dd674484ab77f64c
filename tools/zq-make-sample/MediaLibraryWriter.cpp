// The phone writer behind writePhone: MediaLibrary.sqlitedb in the layout of today's releases or
// of the older ones, with pending WAL frames, the track files and the cover files.

#include "tools/zq-make-sample/DeviceImage.h"

#include "ZQCore/foundation/Date.h"
#include "ZQCore/foundation/Image.h"

#include <sqlite3.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <variant>

namespace zq::sample {

namespace {

namespace fs = std::filesystem;

constexpr int kPodcastsKind = 10;
constexpr int kAlbumEntity = 1;

// ---- schemas ------------------------------------------------------------------------------------

constexpr const char* kModernSchema = R"SQL(
CREATE TABLE _MLDatabaseProperties (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE item (item_pid INTEGER PRIMARY KEY, media_type INTEGER NOT NULL DEFAULT 0,
  title_order INTEGER NOT NULL DEFAULT 0, title_order_section INTEGER NOT NULL DEFAULT 0,
  item_artist_pid INTEGER NOT NULL DEFAULT 0, item_artist_order INTEGER NOT NULL DEFAULT 0,
  album_pid INTEGER NOT NULL DEFAULT 0, album_order INTEGER NOT NULL DEFAULT 0,
  album_artist_pid INTEGER NOT NULL DEFAULT 0, composer_pid INTEGER NOT NULL DEFAULT 0,
  genre_id INTEGER NOT NULL DEFAULT 0, base_location_id INTEGER NOT NULL DEFAULT 0,
  remote_location_id INTEGER NOT NULL DEFAULT 0, exclude_from_shuffle INTEGER NOT NULL DEFAULT 0,
  keep_local INTEGER NOT NULL DEFAULT 0, keep_local_status INTEGER NOT NULL DEFAULT 0,
  in_my_library INTEGER NOT NULL DEFAULT 0, is_compilation INTEGER NOT NULL DEFAULT 0,
  date_added INTEGER NOT NULL DEFAULT 0, show_composer INTEGER NOT NULL DEFAULT 0,
  is_music_show INTEGER NOT NULL DEFAULT 0, date_downloaded INTEGER NOT NULL DEFAULT 0,
  download_source_container_pid INTEGER NOT NULL DEFAULT 0, is_playable INTEGER NOT NULL DEFAULT 0,
  disc_number INTEGER NOT NULL DEFAULT 0, track_number INTEGER NOT NULL DEFAULT 0,
  episode_sort_id INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_extra (item_pid INTEGER PRIMARY KEY, title TEXT NOT NULL DEFAULT '', sort_title TEXT,
  disc_count INTEGER NOT NULL DEFAULT 0, track_count INTEGER NOT NULL DEFAULT 0,
  total_time_ms REAL NOT NULL DEFAULT 0, year INTEGER NOT NULL DEFAULT 0, location TEXT NOT NULL DEFAULT '',
  file_size INTEGER NOT NULL DEFAULT 0, integrity BLOB, is_audible_audio_book INTEGER NOT NULL DEFAULT 0,
  date_modified INTEGER NOT NULL DEFAULT 0, media_kind INTEGER NOT NULL DEFAULT 0, content_rating INTEGER,
  content_rating_level INTEGER NOT NULL DEFAULT 0, is_user_disabled INTEGER NOT NULL DEFAULT 0,
  bpm INTEGER NOT NULL DEFAULT 0, genius_id INTEGER NOT NULL DEFAULT 0, comment TEXT, description TEXT,
  description_long TEXT, copyright TEXT, pivot_key BLOB, grouping TEXT, date_released INTEGER NOT NULL DEFAULT 0,
  is_preorder INTEGER NOT NULL DEFAULT 0, volume_normalization_energy INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_playback (item_pid INTEGER PRIMARY KEY, audio_format INTEGER NOT NULL DEFAULT 0,
  bit_rate INTEGER NOT NULL DEFAULT 0, codec_type INTEGER NOT NULL DEFAULT 0, codec_subtype INTEGER NOT NULL DEFAULT 0,
  data_kind INTEGER NOT NULL DEFAULT 0, data_url TEXT, duration INTEGER NOT NULL DEFAULT 0,
  eq_preset TEXT, format TEXT, gapless_heuristic_info INTEGER NOT NULL DEFAULT 0,
  gapless_encoding_delay INTEGER NOT NULL DEFAULT 0, gapless_encoding_drain INTEGER NOT NULL DEFAULT 0,
  gapless_last_frame_resynch INTEGER NOT NULL DEFAULT 0, has_video INTEGER NOT NULL DEFAULT 0,
  relative_volume INTEGER, sample_rate REAL NOT NULL DEFAULT 0, start_time_ms REAL NOT NULL DEFAULT 0,
  stop_time_ms REAL NOT NULL DEFAULT 0, volume_normalization_energy INTEGER NOT NULL DEFAULT 0,
  progression_direction INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_stats (item_pid INTEGER PRIMARY KEY, date_accessed INTEGER NOT NULL DEFAULT 0,
  date_accessed_sync_id INTEGER NOT NULL DEFAULT 0, play_count_user INTEGER NOT NULL DEFAULT 0,
  play_count_recent INTEGER NOT NULL DEFAULT 0, has_been_played INTEGER NOT NULL DEFAULT 0,
  date_played INTEGER NOT NULL DEFAULT 0, skip_count_user INTEGER NOT NULL DEFAULT 0,
  skip_count_recent INTEGER NOT NULL DEFAULT 0, date_skipped INTEGER NOT NULL DEFAULT 0,
  user_rating INTEGER NOT NULL DEFAULT 0, user_rating_is_derived INTEGER NOT NULL DEFAULT 0,
  liked_state INTEGER NOT NULL DEFAULT 0, liked_state_changed_date INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_store (item_pid INTEGER PRIMARY KEY, store_item_id INTEGER NOT NULL DEFAULT 0,
  store_composer_id INTEGER NOT NULL DEFAULT 0, store_genre_id INTEGER NOT NULL DEFAULT 0,
  store_playlist_id INTEGER NOT NULL DEFAULT 0, storefront_id INTEGER NOT NULL DEFAULT 0,
  purchase_history_id INTEGER NOT NULL DEFAULT 0, purchase_history_token INTEGER NOT NULL DEFAULT 0,
  is_ota_purchased INTEGER NOT NULL DEFAULT 0, store_saga_id INTEGER NOT NULL DEFAULT 0,
  match_redownload_params TEXT NOT NULL DEFAULT '', cloud_status INTEGER NOT NULL DEFAULT 0,
  cloud_in_my_library INTEGER NOT NULL DEFAULT 0, sync_id INTEGER NOT NULL DEFAULT 0,
  playback_endpoint_type INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_video (item_pid INTEGER PRIMARY KEY, video_quality INTEGER NOT NULL DEFAULT 0,
  is_rental INTEGER NOT NULL DEFAULT 0, has_chapter_data INTEGER NOT NULL DEFAULT 0,
  season_number INTEGER NOT NULL DEFAULT 0, hls_asset_traits INTEGER NOT NULL DEFAULT 0,
  network_name TEXT, extended_content_rating TEXT, movie_info TEXT, episode_id TEXT);
CREATE TABLE item_artist (item_artist_pid INTEGER PRIMARY KEY, item_artist TEXT NOT NULL DEFAULT '',
  sort_item_artist TEXT, series_name TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0,
  store_id INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0,
  keep_local INTEGER NOT NULL DEFAULT 0);
CREATE TABLE album_artist (album_artist_pid INTEGER PRIMARY KEY, album_artist TEXT NOT NULL DEFAULT '',
  sort_album_artist TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0,
  store_id INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0,
  keep_local INTEGER NOT NULL DEFAULT 0, liked_state INTEGER NOT NULL DEFAULT 0);
CREATE TABLE album (album_pid INTEGER PRIMARY KEY, album TEXT NOT NULL DEFAULT '', sort_album TEXT,
  album_artist_pid INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0,
  grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, user_rating INTEGER NOT NULL DEFAULT 0,
  liked_state INTEGER NOT NULL DEFAULT 0, all_compilations INTEGER NOT NULL DEFAULT 0,
  feed_url TEXT, season_number INTEGER NOT NULL DEFAULT 0, album_year INTEGER NOT NULL DEFAULT 0,
  keep_local INTEGER NOT NULL DEFAULT 0, store_id INTEGER NOT NULL DEFAULT 0);
CREATE TABLE genre (genre_id INTEGER PRIMARY KEY, genre TEXT NOT NULL DEFAULT '', grouping_key BLOB,
  cloud_status INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0);
CREATE TABLE composer (composer_pid INTEGER PRIMARY KEY, composer TEXT NOT NULL DEFAULT '',
  sort_composer TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0,
  representative_item_pid INTEGER NOT NULL DEFAULT 0);
CREATE TABLE base_location (base_location_id INTEGER PRIMARY KEY, path TEXT NOT NULL);
CREATE TABLE container (container_pid INTEGER PRIMARY KEY, distinguished_kind INTEGER NOT NULL DEFAULT 0,
  date_created INTEGER NOT NULL DEFAULT 0, date_modified INTEGER NOT NULL DEFAULT 0,
  date_played INTEGER NOT NULL DEFAULT 0, name TEXT NOT NULL DEFAULT '', name_order INTEGER NOT NULL DEFAULT 0,
  is_owner INTEGER NOT NULL DEFAULT 1, is_editable INTEGER NOT NULL DEFAULT 0,
  parent_pid INTEGER NOT NULL DEFAULT 0, contained_media_type INTEGER NOT NULL DEFAULT 0,
  workout_template_id INTEGER NOT NULL DEFAULT 0, is_hidden INTEGER NOT NULL DEFAULT 0,
  is_ignorable_itunes_playlist INTEGER NOT NULL DEFAULT 0, description TEXT,
  play_count_user INTEGER NOT NULL DEFAULT 0, play_count_recent INTEGER NOT NULL DEFAULT 0,
  is_container_type_active_target INTEGER NOT NULL DEFAULT 0, orig_date_modified INTEGER NOT NULL DEFAULT 0,
  smart_criteria BLOB, smart_is_folder INTEGER, smart_is_dynamic INTEGER, smart_is_filtered INTEGER,
  smart_is_genius INTEGER, smart_enabled_only INTEGER, smart_is_limited INTEGER, smart_limit_kind INTEGER,
  smart_limit_order INTEGER, smart_limit_value INTEGER, smart_reverse_limit_order INTEGER,
  smart_evaluation_order INTEGER NOT NULL DEFAULT 0, store_cloud_id INTEGER NOT NULL DEFAULT 0,
  keep_local INTEGER NOT NULL DEFAULT 0, cloud_global_id TEXT);
CREATE TABLE container_item (container_item_pid INTEGER PRIMARY KEY, container_pid INTEGER NOT NULL DEFAULT 0,
  item_pid INTEGER NOT NULL DEFAULT 0, position INTEGER NOT NULL DEFAULT 0, uuid TEXT NOT NULL DEFAULT '',
  position_uuid TEXT NOT NULL DEFAULT '', occurrence_id TEXT NOT NULL DEFAULT '');
CREATE INDEX ContainerItemContainerPosition ON container_item (container_pid, position);
CREATE TABLE container_seed (container_pid INTEGER NOT NULL, item_pid INTEGER NOT NULL DEFAULT 0,
  seed_order INTEGER NOT NULL DEFAULT 0, UNIQUE (container_pid, seed_order));
CREATE TABLE artwork (artwork_token TEXT NOT NULL PRIMARY KEY, artwork_source_type INTEGER NOT NULL DEFAULT 0,
  relative_path TEXT NOT NULL DEFAULT '', artwork_type INTEGER NOT NULL DEFAULT 0, interest_data BLOB,
  artwork_variant_type INTEGER NOT NULL DEFAULT 0);
CREATE TABLE artwork_token (artwork_token TEXT NOT NULL DEFAULT '', artwork_source_type INTEGER NOT NULL DEFAULT 0,
  artwork_type INTEGER NOT NULL DEFAULT 0, entity_pid INTEGER NOT NULL DEFAULT 0,
  entity_type INTEGER NOT NULL DEFAULT 0, artwork_variant_type INTEGER NOT NULL DEFAULT 0);
CREATE TABLE best_artwork_token (entity_pid INTEGER NOT NULL DEFAULT 0, entity_type INTEGER NOT NULL DEFAULT 0,
  artwork_type INTEGER NOT NULL DEFAULT 0, available_artwork_token TEXT NOT NULL DEFAULT '',
  fetchable_artwork_token TEXT NOT NULL DEFAULT '', fetchable_artwork_source_type INTEGER NOT NULL DEFAULT 0,
  artwork_variant_type INTEGER NOT NULL DEFAULT 0);
)SQL";

constexpr const char* kIOS6Schema = R"SQL(
CREATE TABLE _MLDatabaseProperties (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE item (item_pid INTEGER PRIMARY KEY, media_type INTEGER NOT NULL DEFAULT 0, title TEXT NOT NULL DEFAULT '',
  sort_title TEXT, title_order INTEGER, item_artist_pid INTEGER NOT NULL DEFAULT 0,
  album_pid INTEGER NOT NULL DEFAULT 0, composer_pid INTEGER NOT NULL DEFAULT 0,
  genre_id INTEGER NOT NULL DEFAULT 0, base_location_id INTEGER NOT NULL DEFAULT 0, location TEXT,
  file_size INTEGER NOT NULL DEFAULT 0, total_time_ms REAL NOT NULL DEFAULT 0,
  track_number INTEGER NOT NULL DEFAULT 0, track_count INTEGER NOT NULL DEFAULT 0,
  disc_number INTEGER NOT NULL DEFAULT 0, disc_count INTEGER NOT NULL DEFAULT 0, year INTEGER NOT NULL DEFAULT 0,
  is_compilation INTEGER NOT NULL DEFAULT 0, date_modified INTEGER NOT NULL DEFAULT 0,
  is_user_disabled INTEGER NOT NULL DEFAULT 0, store_item_id INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_extra (item_pid INTEGER PRIMARY KEY, comment TEXT, description TEXT, copyright TEXT,
  date_created INTEGER NOT NULL DEFAULT 0, date_released INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_stats (item_pid INTEGER PRIMARY KEY, play_count_user INTEGER NOT NULL DEFAULT 0,
  play_count_recent INTEGER NOT NULL DEFAULT 0, date_played INTEGER NOT NULL DEFAULT 0,
  skip_count_user INTEGER NOT NULL DEFAULT 0, skip_count_recent INTEGER NOT NULL DEFAULT 0,
  date_skipped INTEGER NOT NULL DEFAULT 0, user_rating INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_artist (item_artist_pid INTEGER PRIMARY KEY, item_artist TEXT NOT NULL DEFAULT '',
  sort_item_artist TEXT);
CREATE TABLE album_artist (album_artist_pid INTEGER PRIMARY KEY, album_artist TEXT NOT NULL DEFAULT '',
  sort_album_artist TEXT);
CREATE TABLE album (album_pid INTEGER PRIMARY KEY, album TEXT NOT NULL DEFAULT '', sort_album TEXT,
  album_artist_pid INTEGER NOT NULL DEFAULT 0, all_compilations INTEGER NOT NULL DEFAULT 0);
CREATE TABLE genre (genre_id INTEGER PRIMARY KEY, genre TEXT NOT NULL DEFAULT '');
CREATE TABLE composer (composer_pid INTEGER PRIMARY KEY, composer TEXT NOT NULL DEFAULT '');
CREATE TABLE base_location (base_location_id INTEGER PRIMARY KEY, path TEXT NOT NULL);
CREATE TABLE container (container_pid INTEGER PRIMARY KEY, distinguished_kind INTEGER NOT NULL DEFAULT 0,
  date_created INTEGER NOT NULL DEFAULT 0, name TEXT NOT NULL DEFAULT '', parent_pid INTEGER NOT NULL DEFAULT 0,
  is_hidden INTEGER NOT NULL DEFAULT 0, smart_criteria BLOB, smart_is_folder INTEGER, smart_is_dynamic INTEGER,
  smart_is_filtered INTEGER, smart_is_genius INTEGER, smart_enabled_only INTEGER, smart_is_limited INTEGER,
  smart_limit_kind INTEGER, smart_limit_order INTEGER, smart_limit_value INTEGER,
  smart_reverse_limit_order INTEGER);
CREATE TABLE container_items (container_pid INTEGER NOT NULL, item_pid INTEGER NOT NULL, position INTEGER NOT NULL);
CREATE INDEX ContainerItems ON container_items (container_pid, position);
CREATE TABLE container_seed (container_pid INTEGER NOT NULL, item_pid INTEGER NOT NULL, seed_order INTEGER NOT NULL);
CREATE TABLE artwork_info (item_pid INTEGER NOT NULL, relative_path TEXT NOT NULL, width INTEGER, height INTEGER);
)SQL";

// The schema of a real iPhone's database of the iOS 8 era, table for table and index for index
// (sqlite_stat1 aside, which SQLite keeps for itself). Its membership
// view, item_to_container, is a virtual table whose module only the phone has; it is declared
// through the schema table after everything else, as it stands in real files.
constexpr const char* kIOS8Schema = R"SQL(
CREATE TABLE _MLDatabaseProperties (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE album (album_pid INTEGER PRIMARY KEY, album TEXT NOT NULL DEFAULT '', sort_album TEXT, album_artist_pid INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, artwork_cache_id INTEGER NOT NULL DEFAULT 0, user_rating INTEGER NOT NULL DEFAULT 0, all_compilations INTEGER NOT NULL DEFAULT 0, feed_url TEXT, season_number INTEGER, album_year INTEGER NOT NULL DEFAULT 0);
CREATE TABLE album_artist (album_artist_pid INTEGER PRIMARY KEY, album_artist TEXT NOT NULL DEFAULT '', sort_album_artist TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, artwork_cache_id INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0, artist_artwork_cache_id TEXT NOT NULL DEFAULT '');
CREATE TABLE artwork_conversion (cache_id INTEGER, from_format_id INTEGER, to_format_id INTEGER);
CREATE TABLE artwork_free_list (offset INTEGER PRIMARY KEY, length INTEGER);
CREATE TABLE artwork_info (cache_id TEXT NOT NULL, format_id INTEGER NOT NULL, length INTEGER, offset INTEGER, extra_length INTEGER NOT NULL DEFAULT 0, UNIQUE (cache_id, format_id));
CREATE TABLE base_location (base_location_id INTEGER PRIMARY KEY, path TEXT NOT NULL);
CREATE TABLE category (category_id INTEGER PRIMARY KEY, category TEXT NOT NULL UNIQUE);
CREATE TABLE chapter (item_pid INTEGER PRIMARY KEY, chapter_data BLOB);
CREATE TABLE composer (composer_pid INTEGER PRIMARY KEY, composer TEXT NOT NULL DEFAULT '', sort_composer TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, artwork_cache_id INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0);
CREATE TABLE container (container_pid INTEGER PRIMARY KEY, distinguished_kind INTEGER NOT NULL DEFAULT 0, date_created INTEGER NOT NULL DEFAULT 0, date_modified INTEGER NOT NULL DEFAULT 0, name TEXT NOT NULL DEFAULT '', name_order INTEGER NOT NULL DEFAULT 0, parent_pid INTEGER NOT NULL DEFAULT 0, media_kinds INTEGER NOT NULL DEFAULT 0, workout_template_id INTEGER NOT NULL DEFAULT 0, is_hidden INTEGER NOT NULL DEFAULT 0, description TEXT, smart_evaluation_order INTEGER NOT NULL DEFAULT 0, smart_is_folder INTEGER NOT NULL DEFAULT 0, smart_is_dynamic INTEGER NOT NULL DEFAULT 0, smart_is_filtered INTEGER NOT NULL DEFAULT 0, smart_is_genius INTEGER NOT NULL DEFAULT 0, smart_enabled_only INTEGER NOT NULL DEFAULT 0, smart_is_limited INTEGER NOT NULL DEFAULT 0, smart_limit_kind INTEGER NOT NULL DEFAULT 0, smart_limit_order INTEGER NOT NULL DEFAULT 0, smart_limit_value INTEGER NOT NULL DEFAULT 0, smart_reverse_limit_order INTEGER NOT NULL DEFAULT 0, smart_criteria BLOB, play_order INTEGER NOT NULL DEFAULT 0, is_reversed INTEGER NOT NULL DEFAULT 0, album_field_order INTEGER NOT NULL DEFAULT 0, repeat_mode INTEGER NOT NULL DEFAULT 0, shuffle_items INTEGER NOT NULL DEFAULT 0, has_been_shuffled INTEGER NOT NULL DEFAULT 0, filepath TEXT NOT NULL DEFAULT '', is_saveable INTEGER NOT NULL DEFAULT 0, is_src_remote INTEGER NOT NULL DEFAULT 0, is_ignored_syncing INTEGER NOT NULL DEFAULT 0, container_type INTEGER NOT NULL DEFAULT 0, is_container_type_active_target INTEGER NOT NULL DEFAULT 0, orig_date_modified INTEGER  NOT NULL DEFAULT 0, store_cloud_id INTEGER NOT NULL DEFAULT 0, has_cloud_play_order INTEGER NOT NULL DEFAULT 0, contained_media_type INTEGER NOT NULL DEFAULT 0, is_ignorable_itunes_playlist INTEGER DEFAULT 0);
CREATE TABLE container_item_media_type (container_pid INTEGER NOT NULL, media_type INTEGER NOT NULL, count INTEGER NOT NULL DEFAULT 0, UNIQUE(container_pid, media_type));
CREATE TABLE container_items (container_pid INTEGER PRIMARY KEY, item_pid_data BLOB);
CREATE TABLE container_seed (container_pid INTEGER NOT NULL, item_pid INTEGER NOT NULL, seed_order INTEGER DEFAULT 0, UNIQUE (container_pid,item_pid));
CREATE TABLE db_info (db_pid INTEGER PRIMARY KEY, primary_container_pid INTEGER, media_folder_url TEXT, audio_language INTEGER, subtitle_language INTEGER, genius_cuid TEXT, bib BLOB, rib BLOB);
CREATE TABLE entity_revision (revision INTEGER PRIMARY KEY, entity_pid INTEGER NOT NULL, deleted INTEGER NOT NULL DEFAULT 0, class INTEGER NOT NULL DEFAULT 0, revision_type INTEGER NOT NULL DEFAULT 0, UNIQUE (entity_pid, revision_type));
CREATE TABLE genius_config (id INTEGER PRIMARY KEY, version INTEGER UNIQUE, default_num_results INTEGER DEFAULT 0, min_num_results INTEGER DEFAULT 0, data BLOB);
CREATE TABLE genius_metadata (genius_id INTEGER PRIMARY KEY, revision_level INTEGER, version INTEGER, checksum INTEGER, data BLOB);
CREATE TABLE genius_similarities (genius_id INTEGER PRIMARY KEY, data BLOB);
CREATE TABLE genre (genre_id INTEGER PRIMARY KEY, genre TEXT NOT NULL UNIQUE, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0);
CREATE TABLE "item" (item_pid INTEGER PRIMARY KEY, media_type INTEGER NOT NULL DEFAULT 0, title_order INTEGER NOT NULL DEFAULT 0, title_order_section INTEGER NOT NULL DEFAULT 0, item_artist_pid INTEGER NOT NULL DEFAULT 0, item_artist_order INTEGER NOT NULL DEFAULT 0, item_artist_order_section INTEGER NOT NULL DEFAULT 0, series_name_order INTEGER NOT NULL DEFAULT 0, series_name_order_section INTEGER NOT NULL DEFAULT 0, album_pid INTEGER NOT NULL DEFAULT 0, album_order INTEGER NOT NULL DEFAULT 0, album_order_section INTEGER NOT NULL DEFAULT 0, album_artist_pid INTEGER NOT NULL DEFAULT 0, album_artist_order INTEGER NOT NULL DEFAULT 0, album_artist_order_section INTEGER NOT NULL DEFAULT 0, composer_pid INTEGER NOT NULL DEFAULT 0, composer_order INTEGER NOT NULL DEFAULT 0, composer_order_section INTEGER NOT NULL DEFAULT 0, genre_id INTEGER NOT NULL DEFAULT 0, genre_order INTEGER NOT NULL DEFAULT 0, genre_order_section INTEGER NOT NULL DEFAULT 0, disc_number INTEGER DEFAULT 0, track_number INTEGER DEFAULT 0, episode_sort_id INTEGER DEFAULT 0, base_location_id INTEGER NOT NULL DEFAULT 0, remote_location_id INTEGER NOT NULL DEFAULT 0, exclude_from_shuffle INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_artist (item_artist_pid INTEGER PRIMARY KEY, item_artist TEXT NOT NULL DEFAULT '', sort_item_artist TEXT, series_name TEXT NOT NULL DEFAULT '', sort_series_name TEXT, grouping_key BLOB, cloud_status INTEGER NOT NULL DEFAULT 0, representative_item_pid INTEGER NOT NULL DEFAULT 0, artist_artwork_cache_id TEXT NOT NULL DEFAULT '');
CREATE TABLE "item_extra" (item_pid INTEGER PRIMARY KEY, title TEXT NOT NULL DEFAULT '', sort_title TEXT, artwork_cache_id INTEGER NOT NULL DEFAULT 0, disc_count INTEGER DEFAULT 0, track_count INTEGER DEFAULT 0, total_time_ms REAL NOT NULL DEFAULT 0, year INTEGER DEFAULT 0, location TEXT NOT NULL DEFAULT '', file_size INTEGER NOT NULL DEFAULT 0, integrity BLOB, is_compilation INTEGER NOT NULL DEFAULT 0, is_audible_audio_book INTEGER NOT NULL DEFAULT 0, date_created INTEGER NOT NULL DEFAULT 0, date_modified INTEGER NOT NULL DEFAULT 0, media_kind INTEGER NOT NULL DEFAULT 0, content_rating INTEGER NOT NULL DEFAULT 0, content_rating_level INTEGER NOT NULL DEFAULT 0, is_user_disabled INTEGER NOT NULL DEFAULT 0, bpm INTEGER DEFAULT 0, genius_id INTEGER NOT NULL DEFAULT 0, comment TEXT, grouping TEXT, description TEXT, description_long TEXT, collection_description TEXT, copyright TEXT, pending_genius_checksum INTEGER NOT NULL DEFAULT 0, category_id INTEGER DEFAULT 0, location_kind_id INTEGER NOT NULL DEFAULT 0, screenshot_cache_id TEXT);
CREATE TABLE item_playback (item_pid INTEGER PRIMARY KEY, audio_format INTEGER NOT NULL DEFAULT 0, bit_rate INTEGER NOT NULL DEFAULT 0, codec_type INTEGER NOT NULL DEFAULT 0, codec_subtype INTEGER NOT NULL DEFAULT 0, data_kind INTEGER NOT NULL DEFAULT 0, data_url TEXT, duration INTEGER NOT NULL DEFAULT 0, eq_preset TEXT, format TEXT, gapless_heuristic_info INTEGER NOT NULL DEFAULT 0, gapless_encoding_delay INTEGER NOT NULL DEFAULT 0, gapless_encoding_drain INTEGER NOT NULL DEFAULT 0, gapless_last_frame_resynch INTEGER NOT NULL DEFAULT 0, has_video INTEGER NOT NULL DEFAULT 0, relative_volume INTEGER, sample_rate REAL NOT NULL DEFAULT 0, start_time_ms REAL NOT NULL DEFAULT 0, stop_time_ms REAL NOT NULL DEFAULT 0, volume_normalization_energy INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_search (item_pid INTEGER PRIMARY KEY, search_title INTEGER NOT NULL DEFAULT 0, search_album INTEGER NOT NULL DEFAULT 0, search_artist INTEGER NOT NULL DEFAULT 0, search_composer INTEGER NOT NULL DEFAULT 0, search_album_artist INTEGER NOT NULL DEFAULT 0);
CREATE TABLE "item_stats" (item_pid INTEGER PRIMARY KEY, user_rating INTEGER DEFAULT 0, needs_restore INTEGER NOT NULL DEFAULT 0, download_identifier TEXT, play_count_user INTEGER DEFAULT 0, play_count_recent INTEGER DEFAULT 0, has_been_played INTEGER DEFAULT 0, date_played INTEGER DEFAULT 0, date_skipped INTEGER DEFAULT 0, date_accessed INTEGER DEFAULT 0, is_alarm INTEGER NOT NULL DEFAULT 0, skip_count_user INTEGER DEFAULT 0, skip_count_recent INTEGER DEFAULT 0, remember_bookmark INTEGER NOT NULL DEFAULT 0, bookmark_time_ms REAL, hidden INTEGER DEFAULT 0, chosen_by_auto_fill INTEGER NOT NULL DEFAULT 0);
CREATE TABLE "item_store" (item_pid INTEGER PRIMARY KEY, store_item_id INTEGER NOT NULL DEFAULT 0, store_artist_id INTEGER NOT NULL DEFAULT 0, store_composer_id INTEGER NOT NULL DEFAULT 0, store_genre_id INTEGER NOT NULL DEFAULT 0, store_playlist_id INTEGER NOT NULL DEFAULT 0, storefront_id INTEGER NOT NULL DEFAULT 0, purchase_history_id INTEGER NOT NULL DEFAULT 0, purchase_history_token INTEGER NOT NULL DEFAULT 0, purchase_history_redownload_params TEXT, store_saga_id INTEGER NOT NULL DEFAULT 0, match_redownload_params TEXT, sync_id INTEGER NOT NULL DEFAULT 0, home_sharing_id INTEGER NOT NULL DEFAULT 0, is_ota_purchased INTEGER NOT NULL DEFAULT 0, store_kind INTEGER NOT NULL DEFAULT 0, account_id INTEGER NOT NULL DEFAULT 0, key_versions INTEGER NOT NULL DEFAULT 0, key_platform_id INTEGER NOT NULL DEFAULT 0, key_id INTEGER NOT NULL DEFAULT 0, key_id_2 INTEGER NOT NULL DEFAULT 0, date_purchased INTEGER NOT NULL DEFAULT 0, date_released INTEGER NOT NULL DEFAULT 0, external_guid TEXT, feed_url TEXT, artwork_url TEXT, store_xid TEXT, store_flavor TEXT, store_matched_status INTEGER NOT NULL DEFAULT 0, store_redownloaded_status INTEGER NOT NULL DEFAULT 0, store_link_id INTEGER NOT NULL DEFAULT 0);
CREATE TABLE item_upp (item_pid INTEGER PRIMARY KEY, bookkeeper_identifier TEXT NOT NULL, metadata_timestamp REAL DEFAULT NULL, metadata_entity_revision INTEGER DEFAULT NULL);
CREATE TABLE item_video (item_pid INTEGER PRIMARY KEY, video_quality INTEGER NOT NULL DEFAULT 0, is_rental INTEGER NOT NULL DEFAULT 0, has_chapter_data INTEGER NOT NULL DEFAULT 0, season_number INTEGER NOT NULL DEFAULT 0, episode_id TEXT NOT NULL DEFAULT '', network_name TEXT NOT NULL DEFAULT '', extended_content_rating TEXT NOT NULL DEFAULT '', movie_info TEXT NOT NULL DEFAULT '', has_alternate_audio INTEGER NOT NULL DEFAULT 0, has_subtitles INTEGER NOT NULL DEFAULT 0, audio_language INTEGER NOT NULL DEFAULT 0, audio_track_index INTEGER NOT NULL DEFAULT 0, audio_track_id INTEGER NOT NULL DEFAULT 0, subtitle_language INTEGER NOT NULL DEFAULT 0, subtitle_track_index INTEGER NOT NULL DEFAULT 0, rental_duration INTEGER NOT NULL DEFAULT 0, rental_playback_duration INTEGER NOT NULL DEFAULT 0, rental_playback_date_started INTEGER NOT NULL DEFAULT 0, rental_date_started INTEGER  NOT NULL DEFAULT 0, is_demo INTEGER NOT NULL DEFAULT 0);
CREATE TABLE location_kind (location_kind_id INTEGER PRIMARY KEY, kind TEXT NOT NULL UNIQUE);
CREATE TABLE lyrics (item_pid INTEGER PRIMARY KEY, checksum INTEGER, lyrics TEXT);
CREATE TABLE "sort_map" (name TEXT NOT NULL UNIQUE, name_order INTEGER UNIQUE,  name_section INTEGER,  sort_key BLOB NOT NULL);
CREATE TABLE sort_map_no_uniques (name TEXT, name_order INTEGER, name_section INTEGER, sort_key BLOB);
CREATE TABLE store_link (store_link_id INTEGER PRIMARY KEY, url TEXT NOT NULL);
CREATE INDEX AlbumArtistGrouping ON album_artist (grouping_key);
CREATE INDEX AlbumArtistRepresentativeItemPID ON album (representative_item_pid);
CREATE INDEX AlbumGrouping ON album (grouping_key, album_artist_pid, season_number);
CREATE INDEX AlbumRepresentativeItemPID ON album (representative_item_pid);
CREATE INDEX ComposerGrouping ON composer (grouping_key);
CREATE INDEX ComposerRepresentativeItemPID ON album (representative_item_pid);
CREATE INDEX GenreGrouping ON genre (grouping_key);
CREATE INDEX GenreRepresentativeItemPID ON album (representative_item_pid);
CREATE INDEX ItemAlbum ON item (album_order, album_pid, disc_number, track_number, title_order, media_type, remote_location_id, base_location_id, album_order_section);
CREATE INDEX ItemAlbumArtist ON item (album_artist_order, album_artist_pid, album_pid, media_type, remote_location_id, base_location_id, album_artist_order_section);
CREATE INDEX ItemAlbumArtist_Section ON item (album_artist_order_section, album_artist_pid, media_type, album_artist_order);
CREATE INDEX ItemAlbum_Section ON item (album_order_section, album_pid, media_type, album_order);
CREATE INDEX ItemArtistGrouping ON item_artist (grouping_key);
CREATE INDEX ItemArtistRepresentativeItemPID ON album (representative_item_pid);
CREATE INDEX ItemComposer ON item (composer_order, album_order, title_order, composer_pid, media_type, remote_location_id, base_location_id, composer_order_section);
CREATE INDEX ItemComposer_Section ON item (composer_order_section, composer_pid, media_type, composer_order);
CREATE INDEX ItemExtraDateModified ON item_extra (date_modified);
CREATE INDEX ItemExtraGeniusID ON item_extra (genius_id);
CREATE INDEX ItemExtraIsCompilation ON item_extra (is_compilation);
CREATE INDEX ItemGenre ON item (genre_order, genre_id, media_type, remote_location_id, base_location_id, genre_order_section);
CREATE INDEX ItemGenre_Section ON item (genre_order_section, genre_id, media_type, genre_order);
CREATE INDEX ItemItemArtist ON item (item_artist_order, item_artist_pid, album_pid, media_type, remote_location_id, base_location_id, item_artist_order_section);
CREATE INDEX ItemItemArtist_Section ON item (item_artist_order_section, item_artist_pid, media_type, item_artist_order);
CREATE INDEX ItemMediaType ON item(media_type, remote_location_id, base_location_id);
CREATE INDEX ItemSeries ON item (series_name_order, album_order, episode_sort_id, title_order, media_type);
CREATE INDEX ItemSeries_Section ON item (series_name_order_section, album_pid, media_type);
CREATE INDEX ItemStatsRememberBookmark ON item_stats (remember_bookmark);
CREATE INDEX ItemStoreItemID ON item_store (store_item_id);
CREATE INDEX ItemStoreSagaID ON item_store (store_saga_id);
CREATE INDEX ItemTitle ON item (title_order, item_artist_order, album_order, album_pid, disc_number, track_number, media_type, remote_location_id, base_location_id, title_order_section);
CREATE INDEX ItemTitleInAlbum ON item (album_pid, media_type);
CREATE INDEX ItemTitleInAlbumArtist ON item (album_artist_pid, media_type);
CREATE INDEX ItemTitleInComposer ON item (composer_pid, media_type);
CREATE INDEX ItemTitleInGenre ON item (genre_id, media_type);
CREATE INDEX ItemTitleInItemArtist ON item (item_artist_pid, media_type);
CREATE INDEX ItemUPP_BookkeeperIdentifier ON item_upp (bookkeeper_identifier);
CREATE INDEX ItemUPP_BookkeeperItemLookup ON item_upp (metadata_timestamp, metadata_entity_revision);
CREATE INDEX SortMapSortKeys ON sort_map (sort_key);
CREATE INDEX artwork_conversion_cache_id_idx ON artwork_conversion (cache_id);
CREATE TRIGGER on_insert_item_setRemoteLocationColumn AFTER INSERT ON item_store BEGIN UPDATE item SET remote_location_id = (CASE WHEN new.home_sharing_id != 0 THEN 300 ELSE (CASE WHEN IFNULL(new.match_redownload_params, '') != '' THEN 200 ELSE (CASE WHEN IFNULL(new.purchase_history_redownload_params, '') != '' AND new.purchase_history_id != 0 THEN 100 ELSE 0 END) END) END) WHERE item_pid = new.item_pid; END;
CREATE TRIGGER on_update_item_setRemoteLocationColumn AFTER UPDATE OF match_redownload_params, purchase_history_redownload_params, purchase_history_id, home_sharing_id ON item_store BEGIN UPDATE item SET remote_location_id = (CASE WHEN new.home_sharing_id != 0 THEN 300 ELSE (CASE WHEN IFNULL(new.match_redownload_params, '') != '' THEN 200 ELSE (CASE WHEN IFNULL(new.purchase_history_redownload_params, '') != '' AND new.purchase_history_id != 0 THEN 100 ELSE 0 END) END) END) WHERE item_pid = new.item_pid; END;
)SQL";

constexpr const char* kIOS8VirtualTable =
    "CREATE VIRTUAL TABLE item_to_container USING ML3ContainerItemToContainer (item_pid INTEGER NOT NULL DEFAULT 0, container_pid INTEGER NOT NULL DEFAULT 0, physical_order INTEGER NOT NULL DEFAULT 0,shuffle_order INTEGER NOT NULL DEFAULT 0)";

// ---- writing --------------------------------------------------------------------------------------

class Db {
public:
    explicit Db(const fs::path& path)
    {
        if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK)
            fail("open");
    }
    ~Db() { sqlite3_close(db_); }
    Db(const Db&) = delete;
    Db& operator=(const Db&) = delete;
    sqlite3* handle() const { return db_; }

    void exec(const std::string& sql)
    {
        char* message = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
            std::string text = message ? message : "unknown error";
            sqlite3_free(message);
            throw std::runtime_error("phone writer: " + text + " in: " + sql.substr(0, 200));
        }
    }
    /// Runs `sql` once with the values bound in order (std::nullopt binds NULL).
    using Bound = std::variant<std::nullptr_t, std::int64_t, double, std::string>;
    void run(const std::string& sql, const std::vector<Bound>& values)
    {
        sqlite3_stmt*& statement = cache_[sql];
        if (!statement && sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            fail(sql);
        for (std::size_t i = 0; i < values.size(); ++i) {
            const int index = static_cast<int>(i + 1);
            if (auto* n = std::get_if<std::int64_t>(&values[i]))
                sqlite3_bind_int64(statement, index, *n);
            else if (auto* d = std::get_if<double>(&values[i]))
                sqlite3_bind_double(statement, index, *d);
            else if (auto* t = std::get_if<std::string>(&values[i]))
                sqlite3_bind_text(statement, index, t->data(), static_cast<int>(t->size()), SQLITE_TRANSIENT);
            else
                sqlite3_bind_null(statement, index);
        }
        if (sqlite3_step(statement) != SQLITE_DONE)
            fail(sql);
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }
    void finalize()
    {
        for (auto& [sql, statement] : cache_)
            sqlite3_finalize(statement);
        cache_.clear();
    }

private:
    [[noreturn]] void fail(const std::string& what)
    {
        throw std::runtime_error("phone writer: " + what.substr(0, 200) + ": " + sqlite3_errmsg(db_));
    }
    sqlite3* db_ = nullptr;
    std::map<std::string, sqlite3_stmt*> cache_;
};

using Bound = Db::Bound;

Bound text(const std::optional<std::string>& value) { return value ? Bound(*value) : Bound(nullptr); }
Bound integer(std::int64_t value) { return Bound(value); }

std::int64_t phoneDate(std::uint32_t value1904)
{
    if (value1904 == 0)
        return 0;
    return static_cast<std::int64_t>(zq::Date::from1904LocalSeconds(value1904).timeIntervalSinceReferenceDate());
}

std::int64_t pidOf(const TrackSpec& t) { return static_cast<std::int64_t>(t.dbid ? t.dbid : t.trackID); }

/// item.media_type counts in the phone's own numbering (songs 8, podcast episodes 4), not the
/// iTunesDB's media kinds (songs 1, episodes 4) that item_extra.media_kind keeps.
std::int64_t phoneMediaType(std::uint32_t mediaKind) { return mediaKind == 4 ? 4 : 8; }

/// Ids for the distinct texts of a name table, in first-use order from 1.
class Names {
public:
    std::int64_t idOf(const std::optional<std::string>& name)
    {
        if (!name)
            return 0;
        auto [it, added] = ids_.emplace(*name, static_cast<std::int64_t>(ids_.size()) + 1);
        if (added)
            order_.push_back(*name);
        return it->second;
    }
    const std::vector<std::string>& names() const { return order_; }

private:
    std::map<std::string, std::int64_t> ids_;
    std::vector<std::string> order_;
};

Data encodeJPEG(const zq::Image& image)
{
    tjhandle encoder = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const int ok = tjCompress2(encoder, image.bytes(), static_cast<int>(image.width()), 0,
                               static_cast<int>(image.height()), TJPF_ARGB, &out, &size, TJSAMP_444, 92, 0);
    Data data = ok == 0 ? Data(out, size) : Data();
    tjFree(out);
    tjDestroy(encoder);
    if (ok != 0)
        throw std::runtime_error("phone writer: JPEG encoding failed");
    return data;
}

void writeFile(const fs::path& path, const Data& data)
{
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
    if (!out)
        throw std::runtime_error("phone writer: cannot write " + path.string());
}

std::pair<std::string, std::string> splitLocation(const std::string& location)
{
    const std::string path = relativePathOfLocation(location);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {std::string(), path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string coverName(std::uint64_t albumID, bool png)
{
    char name[64];
    std::snprintf(name, sizeof name, "%02llx/%016llx%s", static_cast<unsigned long long>(albumID * 37 % 256),
                  static_cast<unsigned long long>(albumID * 0x9E3779B97F4A7C15ULL), png ? ".png" : ".jpg");
    return "Originals/" + std::string(name);
}

/// Removes an earlier database at `path` with its journal files, and makes its folder.
void clearDatabaseFile(const fs::path& path)
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        std::error_code ignored;
        fs::remove(path.string() + suffix, ignored);
    }
    fs::create_directories(path.parent_path());
}

/// The rows of the name tables, ids from 1 in first-use order.
void writeNameTables(Db& db, const Names& artists, const Names& albumArtists, const Names& genres, const Names& composers)
{
    auto names = [&](const char* table, const char* key, const char* column, const Names& list) {
        for (std::size_t i = 0; i < list.names().size(); ++i)
            db.run(std::string("INSERT INTO ") + table + " (" + key + ", " + column + ") VALUES (?, ?)",
                   {static_cast<std::int64_t>(i + 1), list.names()[i]});
    };
    names("item_artist", "item_artist_pid", "item_artist", artists);
    names("album_artist", "album_artist_pid", "album_artist", albumArtists);
    names("genre", "genre_id", "genre", genres);
    names("composer", "composer_pid", "composer", composers);
}

/// Commits what is written so far into the main file, then writes the last statistics and
/// playlists of `setup` (and its extra statements) as committed frames that stay in the WAL, as
/// on a phone in use. `stats` and `container` write one track's statistics and one playlist.
void writePendingPart(Db& db, const PhoneSpec& setup, std::size_t pendingFrom, std::size_t pendingPlaylistsFrom,
                      const std::function<void(const TrackSpec&)>& stats,
                      const std::function<void(const PlaylistSpec&)>& container)
{
    const DatabaseSpec& d = setup.database;
    db.exec("COMMIT;");
    db.exec("PRAGMA wal_checkpoint(TRUNCATE);");
    int off = 0;
    sqlite3_db_config(db.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, &off);
    db.exec("PRAGMA wal_autocheckpoint=0; BEGIN;");
    for (std::size_t i = pendingFrom; i < d.tracks.size(); ++i)
        stats(d.tracks[i]);
    for (std::size_t i = pendingPlaylistsFrom; i < d.playlists.size(); ++i)
        container(d.playlists[i]);
    for (const auto& sql : setup.statements)
        db.exec(sql);
}

void writeStats(Db& db, bool modern, const TrackSpec& t)
{
    if (modern)
        db.run("INSERT INTO item_stats (item_pid, play_count_user, has_been_played, date_played, skip_count_user, "
               "date_skipped, user_rating) VALUES (?, ?, ?, ?, ?, ?, ?)",
               {pidOf(t), integer(t.playCount), integer(t.hasBeenPlayed), phoneDate(t.lastPlayedTime),
                integer(t.skipCount), phoneDate(t.lastSkippedTime), integer(t.rating)});
    else
        db.run("INSERT INTO item_stats (item_pid, play_count_user, date_played, skip_count_user, date_skipped, "
               "user_rating) VALUES (?, ?, ?, ?, ?, ?)",
               {pidOf(t), integer(t.playCount), phoneDate(t.lastPlayedTime), integer(t.skipCount),
                phoneDate(t.lastSkippedTime), integer(t.rating)});
}

void writeContainer(Db& db, bool modern, const PlaylistSpec& p, const std::map<std::uint32_t, std::int64_t>& pids)
{
    const bool master = p.master == 1, podcasts = p.podcast == 1;
    const std::int64_t kind = podcasts ? kPodcastsKind : master ? 0 : p.distinguishedKind;
    std::vector<Bound> values = {static_cast<std::int64_t>(p.playlistID), kind,
                                 static_cast<std::int64_t>(static_cast<std::int32_t>(p.creationTimestamp / 1000)),
                                 text(p.name), static_cast<std::int64_t>(p.parentID), integer(master || podcasts),
                                 integer(p.folder ? 1 : 0)};
    if (p.smartPrefs) {
        const auto& s = *p.smartPrefs;
        for (std::int64_t v : {std::int64_t(s.liveUpdating), std::int64_t(s.enableRules), std::int64_t(s.matchChecked),
                               std::int64_t(s.enableLimits), std::int64_t(s.limitType), std::int64_t(s.limitSort),
                               std::int64_t(s.limitValue), std::int64_t(s.reverseLimitSort)})
            values.push_back(v);
    } else {
        values.insert(values.end(), 8, nullptr);
    }
    const Data rules = p.smartRules ? buildSmartRuleBlob(*p.smartRules) : Data();
    values.push_back(rules.size() ? Bound(std::string(rules.stringView())) : Bound(nullptr));
    db.run("INSERT INTO container (container_pid, distinguished_kind, date_created, name, parent_pid, is_hidden, "
           "smart_is_folder, smart_is_dynamic, smart_is_filtered, smart_enabled_only, smart_is_limited, "
           "smart_limit_kind, smart_limit_order, smart_limit_value, smart_reverse_limit_order, smart_criteria) "
           "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, CAST(? AS BLOB))",
           values);
    std::int64_t position = 0;
    for (const auto& entry : p.items) {
        if (entry.isGroupHeader)
            continue;
        auto pid = pids.find(entry.trackID);
        const std::int64_t item = pid != pids.end() ? pid->second : entry.trackID;
        if (modern)
            db.run("INSERT INTO container_item (container_pid, item_pid, position, uuid) VALUES (?, ?, ?, ?)",
                   {static_cast<std::int64_t>(p.playlistID), item, position,
                    std::to_string(p.playlistID) + "-" + std::to_string(position)});
        else
            db.run("INSERT INTO container_items (container_pid, item_pid, position) VALUES (?, ?, ?)",
                   {static_cast<std::int64_t>(p.playlistID), item, position});
        ++position;
    }
}

void writeDatabase(const fs::path& path, const PhoneSpec& setup)
{
    const bool modern = setup.generation == MediaLibraryGeneration::Modern;
    const DatabaseSpec& d = setup.database;
    clearDatabaseFile(path);
    Db db(path);
    db.exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;");
    db.exec(modern ? kModernSchema : kIOS6Schema);
    db.exec("BEGIN;");
    db.run("INSERT INTO _MLDatabaseProperties (key, value) VALUES ('MLJaliscoAccountID', ?), "
           "('OrderingLanguage', 'en')", {std::string(modern ? "1" : "0")});

    Names artists, albumArtists, genres, composers, bases;
    std::map<std::uint64_t, const TrackSpec*> albums;  // album ID -> its first track
    std::map<std::uint32_t, std::int64_t> pids;
    for (const auto& t : d.tracks)
        if (t.albumID)
            albums.emplace(t.albumID, &t);
    const std::size_t pendingFrom = d.tracks.size() - std::min(setup.pendingTracks, d.tracks.size());
    for (std::size_t i = 0; i < d.tracks.size(); ++i) {
        const TrackSpec& t = d.tracks[i];
        const std::int64_t pid = pidOf(t);
        pids[t.trackID] = pid;
        std::optional<std::string> location;
        std::int64_t base = 0;
        if (t.location) {
            auto [folder, name] = splitLocation(*t.location);
            base = bases.idOf(folder);
            location = name;
        }
        const std::int64_t albumArtist = albumArtists.idOf(t.albumArtist);
        if (modern) {
            db.run("INSERT INTO item (item_pid, media_type, item_artist_pid, album_pid, album_artist_pid, composer_pid, "
                   "genre_id, base_location_id, is_compilation, date_added, disc_number, track_number, "
                   "episode_sort_id, in_my_library, is_playable, keep_local) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 1, ?, ?)",
                   {pid, phoneMediaType(t.mediaType), artists.idOf(t.artist), integer(static_cast<std::int64_t>(t.albumID)),
                    albumArtist, composers.idOf(t.composer), genres.idOf(t.genre), base, integer(t.compilation),
                    phoneDate(t.dateAdded), integer(t.discNumber), integer(t.trackNumber), integer(t.episodeNumber),
                    integer(location ? 1 : 0), integer(location ? 1 : 0)});
            // A cloud item has no file: its location is empty, as the database keeps it.
            db.run("INSERT INTO item_extra (item_pid, title, sort_title, disc_count, track_count, total_time_ms, year, "
                   "location, file_size, date_modified, media_kind, is_user_disabled, bpm, comment, description, "
                   "grouping, date_released) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, text(t.title), text(t.title), integer(t.discTotal), integer(t.trackTotal),
                    static_cast<double>(t.trackLength), integer(t.year), location.value_or(""),
                    integer(location ? t.fileSize : 0), phoneDate(t.lastModified), integer(t.mediaType),
                    integer(t.checked == 1 ? 0 : 1), integer(t.BPM), text(t.comment), text(t.description),
                    text(t.grouping), phoneDate(t.dateReleased)});
            db.run("INSERT INTO item_playback (item_pid, audio_format, bit_rate, duration, eq_preset, relative_volume, "
                   "sample_rate, start_time_ms, stop_time_ms, volume_normalization_energy) "
                   "VALUES (?, 301, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, integer(t.bitrate), integer(t.trackLength), text(t.EQSetting),
                    integer(static_cast<std::int32_t>(t.volume)), static_cast<double>(t.sampleRate),
                    static_cast<double>(t.startTime), static_cast<double>(t.endTime), integer(t.soundcheckValue)});
            db.run("INSERT INTO item_store (item_pid, store_item_id, store_saga_id, cloud_status, cloud_in_my_library) "
                   "VALUES (?, ?, ?, ?, 1)",
                   {pid, integer(1000000 + t.trackID), integer(location ? 0 : 2000000 + t.trackID),
                    integer(location ? 0 : 3)});
            db.run("INSERT INTO item_video (item_pid, season_number) VALUES (?, ?)", {pid, integer(t.seasonNumber)});
        } else {
            db.run("INSERT INTO item (item_pid, media_type, title, sort_title, item_artist_pid, album_pid, composer_pid, "
                   "genre_id, base_location_id, location, file_size, total_time_ms, track_number, track_count, "
                   "disc_number, disc_count, year, is_compilation, date_modified, is_user_disabled) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, phoneMediaType(t.mediaType), text(t.title), text(t.title), artists.idOf(t.artist),
                    integer(static_cast<std::int64_t>(t.albumID)), composers.idOf(t.composer), genres.idOf(t.genre),
                    base, text(location), integer(location ? t.fileSize : 0), static_cast<double>(t.trackLength),
                    integer(t.trackNumber), integer(t.trackTotal), integer(t.discNumber), integer(t.discTotal),
                    integer(t.year), integer(t.compilation), phoneDate(t.lastModified), integer(t.checked == 1 ? 0 : 1)});
            db.run("INSERT INTO item_extra (item_pid, comment, description, date_created, date_released) "
                   "VALUES (?, ?, ?, ?, ?)",
                   {pid, text(t.comment), text(t.description), phoneDate(t.dateAdded), phoneDate(t.dateReleased)});
        }
        if (i < pendingFrom)
            writeStats(db, modern, t);
    }
    for (const auto& [id, first] : albums) {
        const std::int64_t albumArtist = albumArtists.idOf(first->albumArtist);
        if (modern)
            db.run("INSERT INTO album (album_pid, album, sort_album, album_artist_pid, representative_item_pid, "
                   "all_compilations, season_number, album_year) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                   {static_cast<std::int64_t>(id), text(first->album), text(first->album), albumArtist, pidOf(*first),
                    integer(first->compilation), integer(first->seasonNumber), integer(first->year)});
        else
            db.run("INSERT INTO album (album_pid, album, sort_album, album_artist_pid, all_compilations) "
                   "VALUES (?, ?, ?, ?, ?)",
                   {static_cast<std::int64_t>(id), text(first->album), text(first->album), albumArtist,
                    integer(first->compilation)});
    }
    writeNameTables(db, artists, albumArtists, genres, composers);
    for (std::size_t i = 0; i < bases.names().size(); ++i)
        db.run("INSERT INTO base_location (base_location_id, path) VALUES (?, ?)",
               {static_cast<std::int64_t>(i + 1), bases.names()[i]});

    // Covers.
    for (const auto& [albumID, cover] : setup.covers) {
        const std::string relative = phoneCoverPath(setup, albumID).substr(std::string("iTunes_Control/iTunes/Artwork/").size());
        if (modern) {
            const std::string token = "album-" + std::to_string(albumID);
            db.run("INSERT INTO artwork (artwork_token, artwork_source_type, relative_path, artwork_type) VALUES (?, 1, ?, 1)",
                   {token, relative});
            db.run("INSERT INTO artwork_token (artwork_token, artwork_source_type, artwork_type, entity_pid, entity_type) "
                   "VALUES (?, 1, 1, ?, ?)", {token, static_cast<std::int64_t>(albumID), integer(kAlbumEntity)});
            db.run("INSERT INTO best_artwork_token (entity_pid, entity_type, artwork_type, available_artwork_token) "
                   "VALUES (?, ?, 1, ?)", {static_cast<std::int64_t>(albumID), integer(kAlbumEntity), token});
        } else {
            for (const auto& t : d.tracks)
                if (t.albumID == albumID)
                    db.run("INSERT INTO artwork_info (item_pid, relative_path, width, height) VALUES (?, ?, ?, ?)",
                           {pidOf(t), relative, integer(cover.first), integer(cover.first)});
        }
    }
    const std::size_t pendingPlaylistsFrom = d.playlists.size() - std::min(setup.pendingPlaylists, d.playlists.size());
    for (std::size_t i = 0; i < pendingPlaylistsFrom; ++i)
        writeContainer(db, modern, d.playlists[i], pids);
    writePendingPart(
        db, setup, pendingFrom, pendingPlaylistsFrom, [&](const TrackSpec& t) { writeStats(db, modern, t); },
        [&](const PlaylistSpec& p) { writeContainer(db, modern, p, pids); });
    db.exec("COMMIT;");
    db.finalize();
}

// ---- a real phone's database (iOS 8 era) ------------------------------------------------------

// Codes as that database keeps them: base locations have fixed ids for the phone's own folders;
// the Purchased list is kind 20, the hidden podcast list 11.
constexpr std::int64_t kIOS8PurchasedKind = 20, kIOS8PodcastsKind = 11;

std::int64_t ios8BaseLocation(const std::string& folder, std::map<std::string, std::int64_t>& music)
{
    if (folder.empty())
        return 0;
    if (folder == "Purchases")
        return 300;
    if (folder == "Podcasts")
        return 400;
    // Music synced from a computer lies in folders of its own, numbered on from 3840.
    return music.emplace(folder, 3840 + static_cast<std::int64_t>(music.size())).first->second;
}

std::string packedPids(const std::vector<std::int64_t>& pids)
{
    std::string blob;
    for (std::int64_t pid : pids)
        for (int i = 0; i < 8; ++i)
            blob += static_cast<char>((static_cast<std::uint64_t>(pid) >> (8 * i)) & 0xFF);
    return blob;
}

void writeIOS8Stats(Db& db, const TrackSpec& t)
{
    db.run("INSERT INTO item_stats (item_pid, user_rating, play_count_user, has_been_played, date_played, "
           "skip_count_user, date_skipped) VALUES (?, ?, ?, ?, ?, ?, ?)",
           {pidOf(t), integer(t.rating), integer(t.playCount), integer(t.hasBeenPlayed), phoneDate(t.lastPlayedTime),
            integer(t.skipCount), phoneDate(t.lastSkippedTime)});
}

void writeIOS8Container(Db& db, const PlaylistSpec& p, const std::map<std::uint32_t, std::int64_t>& pids)
{
    const bool master = p.master == 1, podcasts = p.podcast == 1;
    const std::int64_t kind = podcasts ? kIOS8PodcastsKind
                              : master ? 0
                              : p.distinguishedKind == 19 ? kIOS8PurchasedKind
                                                          : p.distinguishedKind;
    // Every smart column holds 0 on a list that is not smart, as the phone writes it.
    std::vector<Bound> values = {static_cast<std::int64_t>(p.playlistID), kind,
                                 static_cast<std::int64_t>(static_cast<std::int32_t>(p.creationTimestamp / 1000)),
                                 Bound(p.name.value_or("")),
                                 static_cast<std::int64_t>(p.parentID), integer(master || podcasts),
                                 integer(p.folder ? 1 : 0)};
    const SmartPrefsSpec none{};
    const auto& s = p.smartPrefs ? *p.smartPrefs : none;
    for (std::int64_t v : {std::int64_t(s.liveUpdating), std::int64_t(s.enableRules), std::int64_t(s.matchChecked),
                           std::int64_t(s.enableLimits), std::int64_t(s.limitType), std::int64_t(s.limitSort),
                           std::int64_t(s.limitValue), std::int64_t(s.reverseLimitSort)})
        values.push_back(p.smartPrefs ? v : 0);
    const Data rules = p.smartRules ? buildSmartRuleBlob(*p.smartRules) : Data();
    values.push_back(rules.size() ? Bound(std::string(rules.stringView())) : Bound(nullptr));
    db.run("INSERT INTO container (container_pid, distinguished_kind, date_created, name, parent_pid, is_hidden, "
           "smart_is_folder, smart_is_dynamic, smart_is_filtered, smart_enabled_only, smart_is_limited, "
           "smart_limit_kind, smart_limit_order, smart_limit_value, smart_reverse_limit_order, smart_criteria) "
           "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, CAST(? AS BLOB))",
           values);
    std::vector<std::int64_t> members;
    for (const auto& entry : p.items) {
        if (entry.isGroupHeader)
            continue;
        auto pid = pids.find(entry.trackID);
        members.push_back(pid != pids.end() ? pid->second : entry.trackID);
    }
    db.run("INSERT INTO container_items (container_pid, item_pid_data) VALUES (?, CAST(? AS BLOB))",
           {static_cast<std::int64_t>(p.playlistID), packedPids(members)});
    if (master)
        db.run("INSERT INTO db_info (db_pid, primary_container_pid) VALUES (1, ?)", {static_cast<std::int64_t>(p.playlistID)});
}

void writeIOS8Database(const fs::path& path, const PhoneSpec& setup)
{
    const DatabaseSpec& d = setup.database;
    clearDatabaseFile(path);
    {
        Db db(path);
        db.exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;");
        db.exec(kIOS8Schema);
        db.exec("BEGIN;");
        db.run("INSERT INTO base_location (base_location_id, path) VALUES (0, ''), (100, 'LoFiCloudAssets'), "
               "(200, 'CloudAssets'), (300, 'Purchases'), (400, 'Podcasts')", {});
        Names artists, albumArtists, genres, composers;
        std::map<std::string, std::int64_t> music;
        std::map<std::uint64_t, const TrackSpec*> albums;
        std::map<std::uint32_t, std::int64_t> pids;
        for (const auto& t : d.tracks)
            if (t.albumID)
                albums.emplace(t.albumID, &t);
        const std::size_t pendingFrom = d.tracks.size() - std::min(setup.pendingTracks, d.tracks.size());
        for (std::size_t i = 0; i < d.tracks.size(); ++i) {
            const TrackSpec& t = d.tracks[i];
            const std::int64_t pid = pidOf(t);
            pids[t.trackID] = pid;
            std::string location;
            std::int64_t base = 200;  // a song with no file is in the cloud
            if (t.location) {
                auto [folder, name] = splitLocation(*t.location);
                base = ios8BaseLocation(folder, music);
                location = name;
            }
            db.run("INSERT INTO item (item_pid, media_type, item_artist_pid, album_pid, album_artist_pid, composer_pid, "
                   "genre_id, disc_number, track_number, episode_sort_id, base_location_id) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, phoneMediaType(t.mediaType), artists.idOf(t.artist), integer(static_cast<std::int64_t>(t.albumID)),
                    albumArtists.idOf(t.albumArtist), composers.idOf(t.composer), genres.idOf(t.genre),
                    integer(t.discNumber), integer(t.trackNumber), integer(t.episodeNumber), base});
            db.run("INSERT INTO item_extra (item_pid, title, sort_title, disc_count, track_count, total_time_ms, year, "
                   "location, file_size, is_compilation, date_created, date_modified, media_kind, is_user_disabled, "
                   "bpm, comment, grouping, description) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, Bound(t.title.value_or("")), text(t.title),
                    integer(t.discTotal), integer(t.trackTotal), static_cast<double>(t.trackLength), integer(t.year),
                    location, integer(t.location ? t.fileSize : 0), integer(t.compilation), phoneDate(t.dateAdded),
                    phoneDate(t.lastModified), integer(t.mediaType), integer(t.checked == 1 ? 0 : 1), integer(t.BPM),
                    text(t.comment), text(t.grouping), text(t.description)});
            db.run("INSERT INTO item_playback (item_pid, bit_rate, duration, eq_preset, relative_volume, sample_rate, "
                   "start_time_ms, stop_time_ms, volume_normalization_energy) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   {pid, integer(t.bitrate), integer(t.trackLength), text(t.EQSetting),
                    integer(static_cast<std::int32_t>(t.volume)), static_cast<double>(t.sampleRate),
                    static_cast<double>(t.startTime), static_cast<double>(t.endTime), integer(t.soundcheckValue)});
            db.run("INSERT INTO item_store (item_pid, store_item_id, date_released) VALUES (?, ?, ?)",
                   {pid, integer(1000000 + t.trackID), phoneDate(t.dateReleased)});
            db.run("INSERT INTO item_video (item_pid, season_number) VALUES (?, ?)", {pid, integer(t.seasonNumber)});
            if (i < pendingFrom)
                writeIOS8Stats(db, t);
        }
        for (const auto& [id, first] : albums)
            db.run("INSERT INTO album (album_pid, album, sort_album, album_artist_pid, representative_item_pid, "
                   "all_compilations, season_number, album_year) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                   {static_cast<std::int64_t>(id), first->album.value_or(""), text(first->album),
                    albumArtists.idOf(first->albumArtist), pidOf(*first), integer(first->compilation),
                    integer(first->seasonNumber), integer(first->year)});
        writeNameTables(db, artists, albumArtists, genres, composers);
        for (const auto& [folder, id] : music)
            db.run("INSERT INTO base_location (base_location_id, path) VALUES (?, ?)", {id, folder});
        const std::size_t pendingPlaylistsFrom =
            d.playlists.size() - std::min(setup.pendingPlaylists, d.playlists.size());
        for (std::size_t i = 0; i < pendingPlaylistsFrom; ++i)
            writeIOS8Container(db, d.playlists[i], pids);
        writePendingPart(
            db, setup, pendingFrom, pendingPlaylistsFrom, [&](const TrackSpec& t) { writeIOS8Stats(db, t); },
            [&](const PlaylistSpec& p) { writeIOS8Container(db, p, pids); });
        // The phone's own virtual table, declared as the phone declares it; SQLite here has no
        // module for it, so nothing may use it after this.
        db.exec("PRAGMA writable_schema=ON;");
        db.run("INSERT INTO sqlite_master (type, name, tbl_name, rootpage, sql) VALUES ('table', 'item_to_container', "
               "'item_to_container', 0, ?)", {std::string(kIOS8VirtualTable)});
        db.exec("PRAGMA writable_schema=OFF; COMMIT;");
        db.finalize();
    }
}

} // namespace

std::string phoneCoverPath(const PhoneSpec& setup, std::uint64_t albumID)
{
    const bool png = std::find(setup.pngCovers.begin(), setup.pngCovers.end(), albumID) != setup.pngCovers.end();
    return "iTunes_Control/iTunes/Artwork/" + coverName(albumID, png);
}

void writePhone(const std::string& root, const PhoneSpec& setup)
{
    const fs::path base(root);
    if (setup.generation == MediaLibraryGeneration::IOS8)
        writeIOS8Database(base / "iTunes_Control" / "iTunes" / "MediaLibrary.sqlitedb", setup);
    else
        writeDatabase(base / "iTunes_Control" / "iTunes" / "MediaLibrary.sqlitedb", setup);
    for (const auto& [relative, contents] : setup.files)
        writeFile(base / relative, contents);
    for (const auto& [albumID, cover] : setup.covers) {
        const auto& [side, picture] = cover;
        zq::Image image(side, side);
        for (std::uint32_t y = 0; y < side; ++y)
            for (std::uint32_t x = 0; x < side; ++x)
                image.setPixel(x, y, picture(x, y));
        const std::string path = phoneCoverPath(setup, albumID);
        const bool png = path.ends_with(".png");
        writeFile(base / path, png ? *image.pngData() : encodeJPEG(image));
    }
}

} // namespace zq::sample
