/* Sends numbered control commands to 127.0.0.1:PORT as fast as it can or at a fixed rate.
 * Datagram i is "ttextcolor R,G,B,255" with i = R*65536 + G*256 + B, so the shell's debug
 * lines say which arrived and in what order.
 * Usage: udpsend PORT COUNT [PER_SECOND]   (no rate or 0: unpaced) */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>

static long long nowNs(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: udpsend PORT COUNT [PER_SECOND]\n");
        return 2;
    }
    const int count = atoi(argv[2]);
    const double rate = argc > 3 ? atof(argv[3]) : 0;
    struct sockaddr_in to = {0};
    to.sin_family = AF_INET;
    to.sin_port = htons((unsigned short)atoi(argv[1]));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const long long start = nowNs();
    int failed = 0;
    for (int i = 0; i < count; ++i) {
        if (rate > 0) {
            const long long due = start + (long long)(i * 1e9 / rate);
            while (nowNs() < due) {
            }
        }
        char text[64];
        const int n = snprintf(text, sizeof text, "ttextcolor %d,%d,%d,255", (i >> 16) & 255,
                               (i >> 8) & 255, i & 255);
        if (sendto(fd, text, (size_t)n, 0, (struct sockaddr *)&to, sizeof to) != n)
            ++failed;
    }
    const double secs = (nowNs() - start) / 1e9;
    printf("sent %d in %.3f s (%.0f per second), %d send errors\n", count, secs, count / secs,
           failed);
    return 0;
}
