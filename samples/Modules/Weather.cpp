/// \file
/// A plug-in: the host loads it late and frees it again.

extern "C" __declspec(dllexport) int ReportWeather()
{
    return 21;
}
