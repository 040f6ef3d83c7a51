#include "servers/common/server_metrics.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(Server_Metrics, RequestsAreCountedByMethodAndStatus)
{
    Server_Metrics metrics;
    metrics.count_request("GET", 200, 1500ms);
    metrics.count_request("GET", 200, 500ms);
    metrics.count_request("GET", 404, 0s);
    metrics.count_request("MADE-UP\"1", 501, 0s);
    metrics.count_request("MADE-UP\"2", 501, 0s);
    const std::string text = metrics.text();
    for (const char* line : {"cio_requests_total{method=\"GET\",status=\"200\"} 2\n",
                             "cio_requests_total{method=\"GET\",status=\"404\"} 1\n",
                             "cio_requests_total{method=\"other\",status=\"501\"} 2\n",
                             "cio_request_seconds_sum 2.000000\n", "cio_request_seconds_count 5\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    EXPECT_EQ(text.find("MADE-UP"), std::string::npos);
}
