/* The mobile-read peer: libimobiledevice's own afc_file_read loop, as a whole process, copying
 * one file off a device (the simulator, for `make bench`) to a local file.
 *
 *   afc_peer UDID DEVICE-PATH OUTFILE [CHUNK]   (CHUNK bytes per read, default 1 MiB)
 */

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv)
{
    if (argc < 4) {
        fprintf(stderr, "usage: afc_peer UDID DEVICE-PATH OUTFILE [CHUNK]\n");
        return 2;
    }
    const uint32_t chunk = argc > 4 ? (uint32_t)strtoul(argv[4], NULL, 10) : 1u << 20;
    idevice_t device = NULL;
    lockdownd_client_t lockdown = NULL;
    lockdownd_service_descriptor_t service = NULL;
    afc_client_t afc = NULL;
    if (idevice_new(&device, argv[1]) != IDEVICE_E_SUCCESS ||
        lockdownd_client_new_with_handshake(device, &lockdown, "afc_peer") != LOCKDOWN_E_SUCCESS ||
        lockdownd_start_service(lockdown, "com.apple.afc", &service) != LOCKDOWN_E_SUCCESS ||
        afc_client_new(device, service, &afc) != AFC_E_SUCCESS) {
        fprintf(stderr, "afc_peer: cannot open the device\n");
        return 1;
    }
    uint64_t handle = 0;
    if (afc_file_open(afc, argv[2], AFC_FOPEN_RDONLY, &handle) != AFC_E_SUCCESS) {
        fprintf(stderr, "afc_peer: cannot open %s\n", argv[2]);
        return 1;
    }
    FILE* out = fopen(argv[3], "wb");
    char* buffer = malloc(chunk);
    if (!out || !buffer)
        return 1;
    uint64_t total = 0;
    for (;;) {
        uint32_t got = 0;
        if (afc_file_read(afc, handle, buffer, chunk, &got) != AFC_E_SUCCESS) {
            fprintf(stderr, "afc_peer: read failed\n");
            return 1;
        }
        if (got == 0)
            break;
        if (fwrite(buffer, 1, got, out) != got)
            return 1;
        total += got;
    }
    afc_file_close(afc, handle);
    fclose(out);
    free(buffer);
    printf("%llu bytes\n", (unsigned long long)total);
    afc_client_free(afc);
    lockdownd_service_descriptor_free(service);
    lockdownd_client_free(lockdown);
    idevice_free(device);
    return 0;
}
