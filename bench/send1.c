/* The least a program can do to send one control command: one socket, one datagram.
 * Usage: send1 PORT TEXT  (to 127.0.0.1) */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

int main(int argc, char **argv)
{
    if (argc < 3)
        return 2;
    struct sockaddr_in to = {0};
    to.sin_family = AF_INET;
    to.sin_port = htons((unsigned short)atoi(argv[1]));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    return sendto(fd, argv[2], strlen(argv[2]), 0, (struct sockaddr *)&to, sizeof to) < 0;
}
