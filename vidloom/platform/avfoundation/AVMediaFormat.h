// Published constants: media types, file types, settings keys and values.
#pragma once

#include <cstdint>
#include <string>

namespace vidloom {

using AVMediaType = std::string;
inline const AVMediaType AVMediaTypeVideo = "vide";
inline const AVMediaType AVMediaTypeAudio = "soun";

using AVFileType = std::string;
inline const AVFileType AVFileTypeMPEG4 = "public.mpeg-4";

using CMPersistentTrackID = int32_t;
inline constexpr CMPersistentTrackID kCMPersistentTrackID_Invalid = 0;

inline const std::string AVVideoCodecKey = "AVVideoCodecKey";
inline const std::string AVVideoWidthKey = "AVVideoWidthKey";
inline const std::string AVVideoHeightKey = "AVVideoHeightKey";
inline const std::string AVVideoCodecTypeH264 = "avc1";

inline const std::string AVFormatIDKey = "AVFormatIDKey";
inline const std::string AVSampleRateKey = "AVSampleRateKey";
inline const std::string AVNumberOfChannelsKey = "AVNumberOfChannelsKey";
inline const std::string AVEncoderBitRateKey = "AVEncoderBitRateKey";
inline const std::string AVLinearPCMBitDepthKey = "AVLinearPCMBitDepthKey";
inline const std::string AVLinearPCMIsBigEndianKey = "AVLinearPCMIsBigEndianKey";
inline const std::string AVLinearPCMIsFloatKey = "AVLinearPCMIsFloatKey";
inline const std::string AVLinearPCMIsNonInterleaved = "AVLinearPCMIsNonInterleaved";

inline const std::string AVAudioTimePitchAlgorithmSpectral = "Spectral";
inline const std::string AVAudioTimePitchAlgorithmTimeDomain = "TimeDomain";
inline const std::string AVAudioTimePitchAlgorithmVarispeed = "Varispeed";

inline const std::string AVVideoColorPrimaries_ITU_R_709_2 = "ITU_R_709_2";
inline const std::string AVVideoColorPrimaries_SMPTE_C = "SMPTE_C";
inline const std::string AVVideoColorPrimaries_EBU_3213 = "EBU_3213";
inline const std::string AVVideoTransferFunction_ITU_R_709_2 = "ITU_R_709_2";
inline const std::string AVVideoYCbCrMatrix_ITU_R_709_2 = "ITU_R_709_2";
inline const std::string AVVideoYCbCrMatrix_ITU_R_601_4 = "ITU_R_601_4";

}  // namespace vidloom
