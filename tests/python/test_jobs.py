"""Jobs that Python starts, beside the command line and ffmpeg."""

import io
import os
import signal
import subprocess
import sys
import time
import unittest

import material
import numpy

import kestrel

KESTREL = os.environ["KESTREL_PROGRAM"]


def target(name):
    path = material.FOLDER / name
    path.unlink(missing_ok=True)
    return path


def hashes(path):
    return material.ffmpeg("-i", path, "-map", "0", "-f", "framehash", "-")


class Convert(unittest.TestCase):
    def test_is_what_the_command_line_does(self):
        options = {"size": (80, 60), "quality": 40, "crop": (0, 10, 160, 100), "video_codec": "mpeg4"}
        ours, theirs = target("ours.mkv"), target("theirs.mkv")
        report = kestrel.convert(material.movie(), ours, **options)
        self.assertTrue(report)
        self.assertEqual((report.outcome, report.findings), ("done", []))
        command = [KESTREL, "convert", material.movie(), theirs, "--size", "80x60", "--quality", "40"]
        command += ["--crop", "0,10,160x100", "--video-codec", "mpeg4", "--progress", "none"]
        subprocess.run(command, check=True)
        self.assertEqual(hashes(ours), hashes(theirs))

    def test_takes_bytes_and_files(self):
        ours, bytes_, file = target("path.wav"), target("bytes.wav"), target("file.wav")
        kestrel.convert(material.movie(), ours)
        data = material.movie().read_bytes()
        kestrel.convert(data, bytes_)
        kestrel.convert(io.BytesIO(data), file)
        self.assertEqual(ours.read_bytes(), bytes_.read_bytes())
        self.assertEqual(ours.read_bytes(), file.read_bytes())

    def test_tells_how_far_it_is(self):
        seen = []
        kestrel.convert(material.movie(), target("told.mp4"), progress=seen.append)
        self.assertGreater(seen[-1].time, 1.5)
        self.assertLessEqual(seen[-1].share, 1)
        self.assertEqual([p.time for p in seen], sorted(p.time for p in seen))

    def test_ends_with_what_its_progress_raises(self):
        class Enough(Exception):
            pass

        def stop(progress):
            raise Enough

        path = target("stopped.mp4")
        with self.assertRaises(Enough):
            kestrel.convert(material.movie(), path, progress=stop)
        self.assertEqual([name for name in os.listdir(path.parent) if "stopped" in name], [])

    def test_ends_with_a_signal(self):
        path = target("interrupted.mkv")
        program = (
            "import kestrel, sys\n"
            "def told(progress): print('going', flush=True)\n"
            f"kestrel.convert({str(material.movie())!r}, {str(path)!r}, progress=told,\n"
            "                fps=1000, encoder_preset='veryslow', size='1080p')\n"
        )
        process = subprocess.Popen(
            [sys.executable, "-c", program],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        process.stdout.readline()
        begin = time.monotonic()
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=60)
        self.assertIn("KeyboardInterrupt", errors)
        self.assertNotEqual(process.returncode, 0)
        self.assertFalse(path.exists())
        self.assertLess(time.monotonic() - begin, 30)

    def test_refuses_in_a_sentence(self):
        path = target("there.mp4")
        path.write_bytes(b"there")
        with self.assertRaises(kestrel.ExistsError) as raised:
            kestrel.convert(material.movie(), path)
        self.assertIsInstance(raised.exception, FileExistsError)
        self.assertTrue(kestrel.convert(material.movie(), path, replace=True))
        for options, subject in (({"crff": 3}, "crff"), ({"fps": "many"}, "fps")):
            with self.assertRaises(kestrel.SettingsError) as raised:
                kestrel.convert(material.movie(), target("none.mp4"), **options)
            self.assertEqual(raised.exception.subject, subject)
            self.assertIsInstance(raised.exception, ValueError)


class OtherJobs(unittest.TestCase):
    def test_cut_keeps_the_pictures_asked_for(self):
        path = target("cut.mp4")
        cut = kestrel.cut(material.movie(), path, keep=[(0.2, 0.6), (1, None)])
        self.assertTrue(cut)
        self.assertGreater(cut.seams, 0)
        with kestrel.Movie(path) as movie:
            self.assertEqual(len(list(movie.pictures())), 10 + 25)
        with self.assertRaises(kestrel.SettingsError):
            kestrel.cut(material.movie(), target("cut2.mp4"), accuracy="rough")

    def test_join_puts_one_behind_the_other(self):
        path = target("joined.mp4")
        notes = []
        report = kestrel.join([material.movie()] * 2, path, note=notes.append)
        self.assertTrue(report)
        with kestrel.Movie(path) as movie:
            self.assertEqual(len(list(movie.pictures())), 100)
            self.assertAlmostEqual(movie.duration, 4, delta=0.1)

    def test_compare_scores(self):
        same = kestrel.compare(material.movie(), material.movie(), every=10)
        self.assertAlmostEqual(same.mean, 100, places=3)
        self.assertEqual(len(same.scores), 5)
        poor = target("poor.mp4")
        kestrel.convert(material.movie(), poor, crf=45)
        compared = kestrel.compare(material.movie(), poor, metric="ssim", every=10)
        self.assertLess(compared.least, 0.99)
        self.assertLessEqual(compared.least, compared.percentile5)
        self.assertLess(compared.percentile5, compared.mean + 1e-9)

    def test_pictures_go_into_files(self):
        thumbnail, sheet = target("thumbnail.png"), target("sheet.png")
        kestrel.thumbnail(material.movie(), thumbnail, time=1, size=(80, None), hflip=True)
        with kestrel.Movie(material.movie(), hflip=True) as movie:
            expected = numpy.asarray(movie.picture(1, size=(80, 60)))
        pixels = numpy.asarray(kestrel.Image(thumbnail).pixels)[..., :3]
        self.assertTrue(numpy.array_equal(pixels, expected))
        kestrel.contact_sheet(material.movie(), sheet, columns=2, rows=2, size=(40, 30))
        self.assertGreater(kestrel.Image(sheet).width, 80)

    def test_waveforms_are_those_of_the_samples(self):
        outline = kestrel.waveform(material.wave(), points_per_second=100, split_channels=True)
        self.assertEqual(outline.shape, (2, 200, 3))
        samples = material.heard(material.wave()).reshape(200, 480, 2)
        points = numpy.asarray(outline)
        for channel in range(2):
            part = samples[:, :, channel]
            self.assertTrue(numpy.allclose(points[channel, :, 0], part.min(axis=1), atol=1e-6))
            self.assertTrue(numpy.allclose(points[channel, :, 1], part.max(axis=1), atol=1e-6))
            power = numpy.sqrt((part.astype(float) ** 2).mean(axis=1))
            self.assertTrue(numpy.allclose(points[channel, :, 2], power, atol=1e-5))
        path = target("wave.png")
        kestrel.save_waveform(material.wave(), path, size=(300, 60))
        self.assertEqual(kestrel.Image(path).width, 300)


class Images(unittest.TestCase):
    def setUp(self):
        random = numpy.random.default_rng(7)
        self.pixels = random.integers(0, 256, (12, 20, 4), numpy.uint8)
        self.pixels[..., 3] = 255

    def test_arrays_come_back(self):
        image = kestrel.Image(self.pixels)
        self.assertEqual((image.width, image.height), (20, 12))
        self.assertTrue(numpy.array_equal(image.pixels, self.pixels))
        rgb = kestrel.Image(self.pixels[::-1, ::2, :3])
        self.assertTrue(numpy.array_equal(rgb.pixels, self.pixels[::-1, ::2]))
        grey = numpy.asarray(kestrel.Image(self.pixels[..., 0]).pixels)
        self.assertTrue((grey[..., :3] == self.pixels[..., :1]).all())
        for wrong in (numpy.zeros((3, 4, 2), numpy.uint8), numpy.zeros((3, 4))):
            with self.assertRaises(ValueError):
                kestrel.Image(wrong)

    def test_crop_and_turn_move_pixels(self):
        image = kestrel.Image(self.pixels)
        cropped = image.crop(3, 2, 10, 5)
        self.assertTrue(numpy.array_equal(cropped.pixels, self.pixels[2:7, 3:13]))
        self.assertTrue(numpy.array_equal(image.rotate(90).pixels, numpy.rot90(self.pixels, -1)))
        self.assertTrue(numpy.array_equal(image.rotate(-90).pixels, numpy.rot90(self.pixels, 1)))
        self.assertEqual(numpy.asarray(image.resize(40, 6).pixels).shape, (6, 40, 4))
        with self.assertRaises(kestrel.SettingsError):
            image.crop(15, 0, 10, 5)

    def test_effects_are_those_of_the_catalogue(self):
        names = kestrel.effects()
        self.assertEqual(len(names), 24)
        image = kestrel.Image(self.pixels)
        for name in names:
            self.assertEqual(numpy.asarray(image.effect(name).pixels).shape, (12, 20, 4), name)
        with self.assertRaises(kestrel.SettingsError):
            image.effect("No such")

    def test_pil_goes_in_and_out(self):
        pil = kestrel.Image(self.pixels).to_pil()
        self.assertTrue(numpy.array_equal(pil, self.pixels))
        self.assertTrue(numpy.array_equal(kestrel.Image(pil).pixels, self.pixels))
        png = kestrel.Image(self.pixels)._repr_png_()
        self.assertTrue(numpy.array_equal(kestrel.Image(png).pixels, self.pixels))


if __name__ == "__main__":
    unittest.main()
