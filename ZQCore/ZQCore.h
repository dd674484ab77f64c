#pragma once

// Everything an application uses, in one include: `#include <ZQCore/ZQCore.h>`.
// Each header below may also be included on its own.

#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Date.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Image.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/NotificationCenter.h"
#include "ZQCore/foundation/Observable.h"
#include "ZQCore/foundation/Range.h"
#include "ZQCore/foundation/Value.h"

#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/model/SmartPlaylistRule.h"
#include "ZQCore/model/iPodTrack.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/artwork/AlbumArtRep.h"

#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
