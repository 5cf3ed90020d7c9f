"""Failed calls: the exception's status code, operation and error line."""
import pytest

import velmora
from conftest import GRID, SHOT_SIZE


def test_failed_call_carries_code_and_captured_line(tmp_path, capfd):
    unnamed = tmp_path / "up.txt"
    with velmora.Stitcher(capture_errors=True) as stitcher:
        with pytest.raises(velmora.VelmoraError) as raised:
            stitcher.init_camera(unnamed, tmp_path, SHOT_SIZE, GRID)
    error = raised.value
    assert (error.operation, error.code, error.line, error.held_before) == \
        ("init_camera", velmora.FAILURE, f"Configure path:{unnamed} error.", False)
    assert str(error) == f"init_camera failed: status -1 (failure): Configure path:{unnamed} error."
    # The captured line still reaches standard error.
    assert f"Configure path:{unnamed} error." in capfd.readouterr().err.splitlines()


def test_without_capture_the_error_has_no_line(tmp_path, up_config, capfd):
    missing = [tmp_path / f"missing_{position}.jpg" for position in range(6)]
    output = tmp_path / "pano.jpg"
    with velmora.Stitcher() as stitcher:
        stitcher.init_camera(up_config, tmp_path / "tables", SHOT_SIZE, GRID)
        with pytest.raises(velmora.VelmoraError) as raised:
            stitcher.stitch(up_config, missing, output)
    assert (raised.value.code, raised.value.line) == (velmora.FAILURE, None)
    assert str(raised.value) == "stitch failed: status -1 (failure)"
    assert f"Read imgPath: {missing[0]} error." in capfd.readouterr().err.splitlines()
    assert not output.exists()


def test_a_code_left_by_an_earlier_failure_is_reported_as_held(tmp_path, up_config):
    with velmora.Stitcher(capture_errors=True) as stitcher:
        with pytest.raises(velmora.VelmoraError):
            stitcher.init_camera(tmp_path / "camera.txt", tmp_path, SHOT_SIZE, GRID)
        # A good Init stores nothing, so the handle still holds the first failure's code.
        with pytest.raises(velmora.VelmoraError) as raised:
            stitcher.init_camera(up_config, tmp_path / "tables", SHOT_SIZE, GRID)
    assert (raised.value.code, raised.value.line, raised.value.held_before) == (-1, None, True)

    with velmora.VideoStitcher(capture_errors=True) as video:
        video.init_camera(up_config, tmp_path / "tables", SHOT_SIZE, GRID)
        with pytest.raises(velmora.VelmoraError) as raised:
            video.stitch_video(tmp_path / "missing.mp4", tmp_path / "out" / "scene.mp4")
        assert (raised.value.code, raised.value.held_before) == (-1, False)
        with pytest.raises(velmora.VelmoraError) as raised:
            video.init_camera(up_config, tmp_path / "tables", SHOT_SIZE, GRID)
        assert raised.value.held_before
